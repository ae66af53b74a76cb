// tessaly-inspect: prints what data files hold, as text or JSON.

#include "core/Exceptions.h"
#include "mail/MailReport.h"
#include "pst/PSTReport.h"

#include <QJsonArray>
#include <QFileInfo>
#include <QJsonDocument>
#include <QStringList>
#include <cstdio>

namespace {

void PrintUsage()
{
    std::printf("Usage: tessaly-inspect FILE... [--json] [--messages]\n"
                "Prints the type and folder tree of each PST or OST file, and the fields of\n"
                "each .msg, .eml, .emlx, .mim or .vcf file.\n"
                "  --messages  every item of every folder with its fields\n"
                "  --json      JSON: one object for one file, an array of them for several\n");
}

} // namespace

int main(int argc, char** argv)
{
    bool json = false;
    tessaly::pst::TReportOptions options;
    QStringList files;
    for (int i = 1; i < argc; ++i) {
        const QString arg = QString::fromLocal8Bit(argv[i]);
        if (arg == QLatin1String("--json")) {
            json = true;
        } else if (arg == QLatin1String("--messages")) {
            options.Messages = true;
        } else if (arg == QLatin1String("--help") || arg == QLatin1String("-h")) {
            PrintUsage();
            return 0;
        } else if (arg.startsWith(QLatin1Char('-'))) {
            std::fprintf(stderr, "Unknown option %s\n", argv[i]);
            PrintUsage();
            return 2;
        } else {
            files << arg;
        }
    }
    if (files.isEmpty()) {
        PrintUsage();
        return 2;
    }
    int result = 0;
    QJsonArray reports;
    for (const auto& file : files) {
        try {
            const QString extension = QFileInfo(file).suffix().toLower();
            const bool dataFile = extension == QLatin1String("pst") || extension == QLatin1String("ost");
            const QJsonObject report =
                dataFile ? tessaly::pst::ReportFile(file, options) : tessaly::mail::ReportMessageFile(file);
            if (json)
                reports.append(report);
            else if (dataFile)
                std::printf("%s", qUtf8Printable(tessaly::pst::ReportText(report)));
            else
                std::printf("%s\n%s", qUtf8Printable(file),
                    QJsonDocument(report[QStringLiteral("message")].toObject()).toJson(QJsonDocument::Indented).constData());
        } catch (const tessaly::core::ETessalyError& e) {
            std::fprintf(stderr, "%s\n", qUtf8Printable(e.Message()));
            result = 1;
        }
    }
    if (json && !reports.isEmpty()) {
        const QJsonDocument doc =
            reports.size() == 1 ? QJsonDocument(reports.first().toObject()) : QJsonDocument(reports);
        std::printf("%s", doc.toJson(QJsonDocument::Indented).constData());
    }
    return result;
}
