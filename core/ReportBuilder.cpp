#include "core/ReportBuilder.h"

#include <QMutex>

namespace tessaly::core {

namespace {

QMutex& Lock()
{
    static QMutex lock;
    return lock;
}

std::shared_ptr<IReportBuilder>& Slot()
{
    static std::shared_ptr<IReportBuilder> builder;
    return builder;
}

} // namespace

void RegisterReportBuilder(std::shared_ptr<IReportBuilder> builder)
{
    QMutexLocker locker(&Lock());
    Slot() = std::move(builder);
}

std::shared_ptr<IReportBuilder> RegisteredReportBuilder()
{
    QMutexLocker locker(&Lock());
    return Slot();
}

} // namespace tessaly::core
