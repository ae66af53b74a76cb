#include "core/CrashReporter.h"

#include "core/Exceptions.h"
#include "core/Version.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <cstdio>
#include <cstdlib>
#include <typeinfo>

#if __has_include(<cxxabi.h>)
#include <cxxabi.h>
#endif

namespace tessaly::core {

namespace {

QString TypeName(const std::type_info& type)
{
#if __has_include(<cxxabi.h>)
    int status = 0;
    char* demangled = abi::__cxa_demangle(type.name(), nullptr, nullptr, &status);
    if (status == 0 && demangled) {
        QString name = QString::fromUtf8(demangled);
        std::free(demangled);
        return name;
    }
#endif
    return QString::fromUtf8(type.name());
}

QString MessageOf(const std::exception& e)
{
    if (const auto* own = dynamic_cast<const ETessalyError*>(&e))
        return own->Message();
    return QString::fromLocal8Bit(e.what());
}

void DefaultShow(const QString& title, const QString& text)
{
    std::fprintf(stderr, "%s: %s\n", qUtf8Printable(title), qUtf8Printable(text));
}

} // namespace

TCrashReporter& TCrashReporter::Instance()
{
    static TCrashReporter* reporter = new TCrashReporter;
    return *reporter;
}

TCrashReporter::TCrashReporter() : m_show(DefaultShow) {}

bool TCrashReporter::IsIgnored(const std::exception& e) const
{
    QMutexLocker locker(&m_lock);
    for (const auto& ignored : m_ignored)
        if (ignored(e))
            return true;
    return false;
}

QString TCrashReporter::LogFileName() const
{
    QMutexLocker locker(&m_lock);
    if (!m_logFileName.isEmpty())
        return m_logFileName;
    QString folder = QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
    if (folder.isEmpty())
        folder = QDir::tempPath();
    return folder + QLatin1String("/crash.log");
}

void TCrashReporter::SetLogFileName(const QString& fileName)
{
    QMutexLocker locker(&m_lock);
    m_logFileName = fileName;
}

void TCrashReporter::SetShow(TShow show)
{
    QMutexLocker locker(&m_lock);
    m_show = show ? std::move(show) : TShow(DefaultShow);
}

void TCrashReporter::Reset()
{
    QMutexLocker locker(&m_lock);
    m_ignored.clear();
    m_shown.clear();
}

void TCrashReporter::Report(const std::exception& e, const QString& where)
{
    Record(TypeName(typeid(e)), MessageOf(e), where, !IsIgnored(e));
}

void TCrashReporter::ReportUnknown(const QString& where)
{
    Record(QCoreApplication::translate("TCrashReporter", "unknown exception"), QString(), where, true);
}

void TCrashReporter::Record(const QString& kind, const QString& message, const QString& where, bool log)
{
    const QString logFile = LogFileName();
    bool logged = false;
    if (log) {
        QDir().mkpath(QFileInfo(logFile).absolutePath());
        QFile file(logFile);
        if (file.open(QIODevice::Append | QIODevice::Text)) {
            const QString entry = QStringLiteral("%1 %2 %3\nWhere: %4\nException: %5\nMessage: %6\n\n")
                                      .arg(QDateTime::currentDateTime().toString(Qt::ISODateWithMs),
                                          QLatin1String(ProductName), QLatin1String(ProductVersion), where, kind,
                                          message);
            logged = file.write(entry.toUtf8()) > 0;
        }
    }

    TShow show;
    {
        QMutexLocker locker(&m_lock);
        const QString key = kind + QLatin1Char('\n') + message;
        if (m_shown.contains(key))
            return;
        m_shown.insert(key);
        show = m_show;
    }
    if (!log) {
        show(QLatin1String(ProductName), message);
        return;
    }
    QString text = QCoreApplication::translate("TCrashReporter", "An unexpected error occurred:\n%1").arg(message.isEmpty() ? kind : message);
    text += logged ? QCoreApplication::translate("TCrashReporter", "\n\nThe details were written to %1. Please send that file to the developers.").arg(logFile)
                   : QCoreApplication::translate("TCrashReporter", "\n\nThe details could not be written to %1.").arg(logFile);
    show(QCoreApplication::translate("TCrashReporter", "%1 error").arg(QLatin1String(ProductName)), text);
}

void TCrashReporter::InstallTerminateHandler()
{
    std::set_terminate([] {
        if (const std::exception_ptr current = std::current_exception()) {
            try {
                std::rethrow_exception(current);
            } catch (const std::exception& e) {
                Instance().Report(e, QStringLiteral("terminate"));
            } catch (...) {
                Instance().ReportUnknown(QStringLiteral("terminate"));
            }
        }
        std::abort();
    });
}

} // namespace tessaly::core
