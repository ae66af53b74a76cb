// make-pst: writes a synthetic data file from a seed and parameters, the
// same file for the same arguments, and says how long it took and how much
// memory it needed.

#include "core/Exceptions.h"
#include "core/Version.h"
#include "pstfile/PSTGenerator.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <cstdio>
#include <sys/resource.h>

using namespace tessaly;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationVersion(QLatin1String(core::ProductVersion));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Writes a synthetic Outlook data file (Unicode PST)."));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("the data file to write"));
    const pstfile::TGeneratorOptions defaults;
    struct TNumber {
        const char* name;
        const char* help;
        qint64 value;
    } numbers[] = {
        {"seed", "seed of the generator", defaults.seed},
        {"folders", "mail folders besides the special ones", defaults.folders},
        {"depth", "levels the folders nest to", defaults.depth},
        {"messages", "mail items", defaults.messages},
        {"body-size", "average characters of a text body", defaults.bodySize},
        {"attach-count", "at most this many attachments per message", defaults.attachCount},
        {"attach-size", "average bytes of an attachment", defaults.attachSize},
        {"non-ascii", "percent of words from non-Latin scripts", defaults.nonAsciiShare},
        {"contacts", "items of the Contacts folder", defaults.contacts},
        {"appointments", "items of the Calendar folder", defaults.appointments},
    };
    for (const auto& n : numbers)
        parser.addOption({QString::fromLatin1(n.name), QStringLiteral("%1 (default %2).").arg(QLatin1String(n.help)).arg(n.value),
            QStringLiteral("N")});
    parser.addOption({QStringLiteral("order"),
        QStringLiteral("Message node ids folder by folder (tree, the default) or as the mail arrived, interleaved "
                       "across folders (arrival)."),
        QStringLiteral("tree|arrival"), QStringLiteral("tree")});
    parser.addOption({QStringLiteral("encoding"),
        QStringLiteral("Encoding of the data blocks: none (the default), permute or cyclic."),
        QStringLiteral("none|permute|cyclic"), QStringLiteral("none")});
    parser.addOption({QStringLiteral("edge-cases"),
        QStringLiteral("Add the folders and items readers must treat with care.")});
    parser.addOption({QStringLiteral("quiet"), QStringLiteral("No progress on standard error.")});
    parser.process(app);
    if (parser.positionalArguments().size() != 1)
        parser.showHelp(2);

    qint64 values[std::size(numbers)];
    for (size_t i = 0; i < std::size(numbers); ++i) {
        const QString name = QString::fromLatin1(numbers[i].name);
        bool ok = true;
        values[i] = parser.isSet(name) ? parser.value(name).toLongLong(&ok) : numbers[i].value;
        if (!ok || values[i] < 0) {
            std::fprintf(stderr, "make-pst: --%s needs a number of 0 or more\n", numbers[i].name);
            return 2;
        }
    }
    pstfile::TGeneratorOptions options;
    options.seed = uint32_t(values[0]);
    options.folders = int(values[1]);
    options.depth = int(values[2]);
    options.messages = values[3];
    options.bodySize = int(values[4]);
    options.attachCount = int(values[5]);
    options.attachSize = int(values[6]);
    options.nonAsciiShare = int(values[7]);
    options.contacts = int(values[8]);
    options.appointments = int(values[9]);
    options.edgeCases = parser.isSet(QStringLiteral("edge-cases"));
    const QString order = parser.value(QStringLiteral("order"));
    if (order == QLatin1String("tree")) {
        options.order = pstfile::pmoTree;
    } else if (order == QLatin1String("arrival")) {
        options.order = pstfile::pmoArrival;
    } else {
        std::fprintf(stderr, "make-pst: --order takes tree or arrival\n");
        return 2;
    }
    const QString encoding = parser.value(QStringLiteral("encoding"));
    if (encoding == QLatin1String("none")) {
        options.cryptMethod = pstfile::CryptNone;
    } else if (encoding == QLatin1String("permute")) {
        options.cryptMethod = pstfile::CryptPermute;
    } else if (encoding == QLatin1String("cyclic")) {
        options.cryptMethod = pstfile::CryptCyclic;
    } else {
        std::fprintf(stderr, "make-pst: --encoding takes none, permute or cyclic\n");
        return 2;
    }
    const bool quiet = parser.isSet(QStringLiteral("quiet"));

    QElapsedTimer timer;
    timer.start();
    try {
        const auto result = pstfile::GenerateDataFile(parser.positionalArguments().first(), options, [&](int64_t done) {
            if (!quiet && done % 10000 == 0)
                std::fprintf(stderr, "\r%lld messages", static_cast<long long>(done));
        });
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        if (!quiet)
            std::fprintf(stderr, "\r");
        std::printf("%lld items, %lld bytes, %.1f s, peak resident memory %ld KiB\n",
            static_cast<long long>(result.messages), static_cast<long long>(result.bytes), timer.elapsed() / 1000.0,
            usage.ru_maxrss);
    } catch (const core::ETessalyError& e) {
        std::fprintf(stderr, "make-pst: %s\n", qPrintable(e.Message()));
        return 1;
    }
    return 0;
}
