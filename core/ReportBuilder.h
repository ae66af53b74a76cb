#pragma once

// The report builder the program uses for tabular reports of folders; each
// kind of data source registers its own.

#include <QString>
#include <memory>

namespace tessaly::core {

class IReportBuilder {
public:
    virtual ~IReportBuilder() = default;
    virtual QString Name() const = 0;
};

void RegisterReportBuilder(std::shared_ptr<IReportBuilder> builder);
std::shared_ptr<IReportBuilder> RegisteredReportBuilder();

} // namespace tessaly::core
