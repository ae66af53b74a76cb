#include "core/AppConfig.h"
#include "core/CommandLine.h"
#include "core/HtmlText.h"

#include <gtest/gtest.h>

using namespace tessaly::core;

namespace {

TCommandLine ConfiguredCommandLine()
{
    TCommandLine commandLine;
    commandLine.DefineKeys(TAppConfig::BuiltIn());
    return commandLine;
}

int ErrorCodeOf(const QStringList& args)
{
    TCommandLine commandLine = ConfiguredCommandLine();
    try {
        commandLine.Parse(args, QStringLiteral("/work/dir"));
    } catch (const ECommandLineError& e) {
        return e.Code();
    }
    return crOK;
}

const QString PstHelpHtml = QStringLiteral(
    "<b>Keys:</b><br>&nbsp;&nbsp;<b>-pst FILE</b>&nbsp;&nbsp;Outlook data file to view<br>");

} // namespace

TEST(CommandLine, PstKeyWithRelativePathBecomesAbsolute)
{
    TCommandLine commandLine = ConfiguredCommandLine();
    commandLine.Parse({QStringLiteral("-pst"), QStringLiteral("mail/../archive.pst")}, QStringLiteral("/home/ann/docs"));
    EXPECT_TRUE(commandLine.HasKey(QStringLiteral("pst")));
    EXPECT_TRUE(commandLine.HasKey(QStringLiteral("PST")));
    EXPECT_EQ(commandLine.Value(QStringLiteral("pst")), QStringLiteral("/home/ann/docs/archive.pst"));
    EXPECT_TRUE(commandLine.Sources().isEmpty());
    EXPECT_TRUE(commandLine.IsRun());
}

TEST(CommandLine, KeyForms)
{
    struct Case {
        QStringList args;
        QString value;
    };
    const Case cases[] = {
        {{"--pst", "/data/a.pst"}, "/data/a.pst"},
        {{"-PST=/data/b.pst"}, "/data/b.pst"},
        {{"--pst=c.pst"}, "/w/c.pst"},
        {{"-pst", "first.pst", "-pst", "/last.pst"}, "/last.pst"},
    };
    for (const auto& c : cases) {
        TCommandLine commandLine = ConfiguredCommandLine();
        commandLine.Parse(c.args, QStringLiteral("/w"));
        EXPECT_EQ(commandLine.Value(QStringLiteral("pst")), c.value) << c.args.join(' ').toStdString();
        EXPECT_EQ(commandLine.KeyNames(), QStringList{QStringLiteral("pst")});
    }
}

TEST(CommandLine, SourcesAndEndOfKeys)
{
    TCommandLine commandLine = ConfiguredCommandLine();
    commandLine.Parse({QStringLiteral("Inbox\\"), QStringLiteral("--"), QStringLiteral("-odd name.pst")});
    EXPECT_EQ(commandLine.Sources(), (QStringList{QStringLiteral("Inbox\\"), QStringLiteral("-odd name.pst")}));
    EXPECT_FALSE(commandLine.IsRun());
    EXPECT_EQ(commandLine.Text(), QStringLiteral("Inbox\\ -- \"-odd name.pst\""));
}

TEST(CommandLine, BadArgumentsAreCommandLineErrors)
{
    EXPECT_EQ(ErrorCodeOf({QStringLiteral("-nosuchkey")}), crCommandLine);
    EXPECT_EQ(ErrorCodeOf({QStringLiteral("--nosuchkey=1")}), crCommandLine);
    EXPECT_EQ(ErrorCodeOf({QStringLiteral("-pst")}), crCommandLine);
    EXPECT_EQ(ErrorCodeOf({QStringLiteral("-")}), crCommandLine);
    EXPECT_EQ(ErrorCodeOf({QStringLiteral("-=x")}), crCommandLine);
    EXPECT_EQ(ErrorCodeOf({QStringLiteral("file.pst"), QStringLiteral("-pst"), QStringLiteral("x.pst")}), crOK);
}

TEST(CommandLine, UnknownKeyIsNamedInTheError)
{
    TCommandLine commandLine = ConfiguredCommandLine();
    try {
        commandLine.Parse({QStringLiteral("-Destination"), QStringLiteral("out")});
        FAIL() << "no error for an unknown key";
    } catch (const ECommandLineError& e) {
        EXPECT_EQ(e.Code(), crCommandLine);
        EXPECT_EQ(e.Detail(), QStringLiteral("unknown key -Destination"));
        EXPECT_EQ(e.Message(), QStringLiteral("Error in command line: unknown key -Destination"));
    }
}

TEST(CommandLine, Switches)
{
    TCommandLine commandLine;
    commandLine.DefineKey({QStringLiteral("Sender"), QStringLiteral("Show the sender"), TKeyKind::Switch, false});
    commandLine.Parse({QStringLiteral("-sender"), QStringLiteral("file.pst")});
    EXPECT_TRUE(commandLine.Switch(QStringLiteral("Sender")));
    EXPECT_EQ(commandLine.Sources(), QStringList{QStringLiteral("file.pst")});

    commandLine.Parse({QStringLiteral("--Sender=off")});
    EXPECT_TRUE(commandLine.HasKey(QStringLiteral("Sender")));
    EXPECT_FALSE(commandLine.Switch(QStringLiteral("Sender")));

    EXPECT_THROW(commandLine.Parse({QStringLiteral("-Sender=maybe")}), ECommandLineError);
}

TEST(CommandLine, WhenTheMainWindowOpens)
{
    TCommandLine commandLine = ConfiguredCommandLine();
    commandLine.DefineKey({QStringLiteral("Destination"), QStringLiteral("Output folder"), TKeyKind::Value, true});
    struct Case {
        QStringList args;
        bool window;
    };
    const Case cases[] = {
        {{}, true},
        {{"a.pst", "b.ost"}, true},
        {{"-pst", "a.pst"}, true},
        {{"-PST", "a.pst"}, true},
        {{"\"Inbox\\\"", "-pst", "a.pst"}, true},
        {{"-pst", "a.pst", "-Destination", "out"}, false},
        {{"-Destination", "out"}, false},
        {{"--help"}, false},
        {{"--version"}, false},
        // Qt's own options are left to the application object.
        {{"-style", "Fusion", "-pst", "a.pst"}, true},
        {{"-reverse", "a.pst", "-platform=offscreen"}, true},
    };
    for (const auto& c : cases) {
        commandLine.Parse(c.args, QStringLiteral("/w"));
        EXPECT_EQ(commandLine.WantsMainWindow(), c.window) << c.args.join(' ').toStdString();
    }
}

TEST(CommandLine, ErrorPageForEachCode)
{
    TCommandLine commandLine = ConfiguredCommandLine();
    commandLine.Parse({QStringLiteral("Inbox"), QStringLiteral("-pst"), QStringLiteral("/my mail/a.pst")});
    const QString commandText = QStringLiteral("Inbox -pst \"/my mail/a.pst\"");
    ASSERT_EQ(commandLine.Text(), commandText);

    const struct {
        int code;
        QString message;
    } cases[] = {
        {2, "Error in command line"},
        {3, "No source or destination"},
        {4, "Exception"},
        {5, "Internal error. Please report it to the developers of Tessaly"},
        {7, "Invalid source files"},
    };
    for (const auto& c : cases) {
        const QString expected = QStringLiteral("<b><font color=clRed>Error:</font></b><br>&nbsp;&nbsp;") + c.message
            + QStringLiteral("<br>&nbsp;<br><b>Command line: </b><br>&nbsp;&nbsp;") + commandText
            + QStringLiteral("<p>&nbsp;<p><hr><p>") + PstHelpHtml;
        EXPECT_EQ(commandLine.ErrorPage(c.code), expected) << c.code;
    }
    EXPECT_EQ(commandLine.ErrorPage(0), QString());
    EXPECT_EQ(commandLine.ErrorPage(1), QString());
}

TEST(CommandLine, ErrorPageDetailAndMarkupInArguments)
{
    TCommandLine commandLine = ConfiguredCommandLine();
    commandLine.Parse({QStringLiteral("<b>&.pst")});
    const QString page = commandLine.ErrorPage(crInvalidSource, QStringLiteral("not found: <b>&.pst"));
    EXPECT_TRUE(page.contains(QStringLiteral("Invalid source files<br>&nbsp;&nbsp;not found: &lt;b&gt;&amp;.pst<br>")))
        << page.toStdString();
    EXPECT_TRUE(page.contains(QStringLiteral("&nbsp;&nbsp;&lt;b&gt;&amp;.pst<p>")));
}

TEST(CommandLine, ErrorPageAsPlainText)
{
    TCommandLine commandLine = ConfiguredCommandLine();
    commandLine.Parse({QStringLiteral("-pst"), QStringLiteral("/a.pst")});
    EXPECT_EQ(HtmlToPlainText(commandLine.ErrorPage(crNoSource)),
        QStringLiteral("Error:\n  No source or destination\n \nCommand line: \n  -pst /a.pst\n \n"
                       "----------------------------------------\n\nKeys:\n  -pst FILE  Outlook data file to view\n"));
}

TEST(CommandLine, VersionAndQtOptions)
{
    TCommandLine commandLine = ConfiguredCommandLine();
    commandLine.Parse({QStringLiteral("-VERSION")}, QStringLiteral("/w"));
    EXPECT_TRUE(commandLine.VersionRequested());
    commandLine.Parse({QStringLiteral("-style"), QStringLiteral("Fusion"), QStringLiteral("--qwindowtitle"),
                          QStringLiteral("T"), QStringLiteral("-reverse"), QStringLiteral("a.pst"), QStringLiteral("-display=:1")},
        QStringLiteral("/w"));
    EXPECT_FALSE(commandLine.VersionRequested());
    EXPECT_EQ(commandLine.Sources(), QStringList{QStringLiteral("a.pst")}); // the values stay Qt's
    // Our own keys keep their names, and unknown keys are still refused.
    commandLine.DefineKey({QStringLiteral("Title"), QStringLiteral("A key of ours"), TKeyKind::Value, false});
    commandLine.Parse({QStringLiteral("-title"), QStringLiteral("x")}, QStringLiteral("/w"));
    EXPECT_EQ(commandLine.Value(QStringLiteral("Title")), QStringLiteral("x"));
    EXPECT_EQ(ErrorCodeOf({QStringLiteral("-styles"), QStringLiteral("x")}), crCommandLine);
}

TEST(CommandLine, HelpListsEveryKey)
{
    TCommandLine commandLine = ConfiguredCommandLine();
    commandLine.DefineKey({QStringLiteral("Sender"), QStringLiteral("Show the sender"), TKeyKind::Switch, false});
    const QString help = commandLine.HelpText();
    EXPECT_TRUE(help.contains(QStringLiteral("  -pst FILE  Outlook data file to view\n"))) << help.toStdString();
    EXPECT_TRUE(help.contains(QStringLiteral("  -Sender    Show the sender\n"))) << help.toStdString();
    commandLine.Parse({QStringLiteral("-h")});
    EXPECT_TRUE(commandLine.HelpRequested());
}
