// The command-line parser on arbitrary arguments (split at NUL bytes): it
// either parses or throws its own error, and the error page always builds.

#include "core/CommandLine.h"

#include <QStringList>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace tessaly::core;
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    QStringList args;
    for (const auto& part : bytes.split('\0'))
        args << QString::fromUtf8(part);

    TCommandLine commandLine;
    commandLine.DefineKey({QStringLiteral("pst"), QStringLiteral("Outlook data file to view"), TKeyKind::Value, true});
    commandLine.DefineKey({QStringLiteral("Sender"), QStringLiteral("Show the sender"), TKeyKind::Switch, false});
    try {
        commandLine.Parse(args, QStringLiteral("/tmp"));
        (void)commandLine.WantsMainWindow();
        (void)commandLine.Value(QStringLiteral("pst"));
    } catch (const ECommandLineError& e) {
        (void)commandLine.ErrorPage(e.Code(), e.Detail());
    }
    return 0;
}
