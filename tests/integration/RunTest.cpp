// The two programs as a user runs them.

#include "TestUtil.h"
#include "integration/RunUtil.h"

#include <QDir>
#include <QDirIterator>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <unistd.h>

using tessaly::test::TestData;

namespace {

TRun RunProgram(const QString& program, const QStringList& args, const QString& workingDir = {})
{
    return RunProcess(QStringLiteral(TESSALY_BINARY_DIR "/app/") + program, args, workingDir);
}

} // namespace

TEST(Inspect, JsonOfOneAndOfSeveralFiles)
{
    const TRun one = RunProgram(QStringLiteral("tessaly-inspect"), {QStringLiteral("--json"), TestData(QStringLiteral("pst/sample2.pst"))});
    ASSERT_EQ(one.exitCode, 0) << one.err.toStdString();
    const QJsonObject tree = QJsonDocument::fromJson(one.out.toUtf8()).object();
    EXPECT_EQ(tree[QStringLiteral("format")].toString(), QStringLiteral("PST"));
    EXPECT_EQ(tree[QStringLiteral("bits")].toInt(), 32);
    EXPECT_FALSE(tree[QStringLiteral("root")][QStringLiteral("folders")].toArray().isEmpty());

    const TRun two = RunProgram(QStringLiteral("tessaly-inspect"),
        {QStringLiteral("--json"), TestData(QStringLiteral("pst/sample1.pst")), TestData(QStringLiteral("pst/test_unicode.pst"))});
    ASSERT_EQ(two.exitCode, 0) << two.err.toStdString();
    EXPECT_EQ(QJsonDocument::fromJson(two.out.toUtf8()).array().size(), 2);
}

// Everything tessaly-inspect reads from every sample data file, as the
// golden files keep it: the folder tree, every item and its fields.
TEST(Inspect, EverySampleDataFileGivesItsGoldenJson)
{
    const QDir samples(TestData(QStringLiteral("pst")));
    int compared = 0;
    for (const QString& name : samples.entryList(QDir::Files)) {
        QFile golden(TestData(QStringLiteral("golden/inspect/%1.json").arg(name)));
        ASSERT_TRUE(golden.open(QIODevice::ReadOnly)) << name.toStdString() << " has no golden file";
        const TRun run = RunProgram(QStringLiteral("tessaly-inspect"),
            {QStringLiteral("--json"), QStringLiteral("--messages"), name}, samples.path());
        ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
        EXPECT_EQ(run.out.toUtf8(), golden.readAll()) << name.toStdString();
        ++compared;
    }
    EXPECT_GE(compared, 7);
}

TEST(Inspect, MissingFileAndBadOption)
{
    const TRun missing = RunProgram(QStringLiteral("tessaly-inspect"), {QStringLiteral("/no/such.pst")});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_TRUE(missing.err.contains(QStringLiteral("/no/such.pst")));
    EXPECT_EQ(RunProgram(QStringLiteral("tessaly-inspect"), {QStringLiteral("--bogus")}).exitCode, 2);
}

// Started as root, the window stays up: the message view's sandbox, which
// refuses root, is switched off, and stderr says so on one line.
TEST(Tessaly, StartsAsRootWithTheMessageViewUnsandboxed)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "not running as root";
    QTemporaryDir home;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"QTWEBENGINE_CHROMIUM_FLAGS", "QTWEBENGINE_DISABLE_SANDBOX", "DISPLAY", "WAYLAND_DISPLAY"})
        env.remove(QLatin1String(name));
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.insert(QStringLiteral("HOME"), home.path());
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
    env.insert(QStringLiteral("XDG_DATA_HOME"), home.filePath(QStringLiteral("data")));
    QProcess window;
    window.setProcessEnvironment(env);
    window.start(QStringLiteral(TESSALY_BINARY_DIR "/app/tessaly"), {TestData(QStringLiteral("pst/sample1.pst"))});
    ASSERT_TRUE(window.waitForStarted());
    // The view starts with the window; without its switch it exits at once.
    EXPECT_FALSE(window.waitForFinished(6000)) << "exit code " << window.exitCode() << ": "
                                               << window.readAllStandardError().toStdString();
    window.kill();
    window.waitForFinished();
    const QString err = QString::fromUtf8(window.readAllStandardError());
    EXPECT_EQ(err.count(QLatin1String("without its sandbox")), 1) << err.toStdString();
}

// The command-line program hands the window over to the window program; a
// copy of it without that program says what is missing instead of failing
// in the toolkit, and an export needs no window program at all.
TEST(Tessaly, WindowProgramIsStartedInPlaceOrMissedAloud)
{
    QTemporaryDir alone;
    const QString copy = alone.filePath(QStringLiteral("tessaly"));
    ASSERT_TRUE(QFile::copy(QStringLiteral(TESSALY_BINARY_DIR "/app/tessaly"), copy));
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), alone.filePath(QStringLiteral("config")));
    QProcess window;
    window.setProcessEnvironment(env);
    window.start(copy, {TestData(QStringLiteral("pst/sample1.pst"))});
    ASSERT_TRUE(window.waitForFinished(10000));
    EXPECT_EQ(window.exitCode(), 1);
    EXPECT_TRUE(QString::fromUtf8(window.readAllStandardError()).contains(QStringLiteral("tessaly-window is missing")));

    const QString out = alone.filePath(QStringLiteral("out"));
    QProcess exporter;
    exporter.setProcessEnvironment(env);
    exporter.start(copy, {QStringLiteral("Outlook"), QStringLiteral("-pst"), TestData(QStringLiteral("pst/sample1.pst")),
                             QStringLiteral("-dest"), out});
    ASSERT_TRUE(exporter.waitForFinished(30000));
    EXPECT_EQ(exporter.exitCode(), 0) << exporter.readAllStandardError().toStdString();
    EXPECT_FALSE(QDir(out).entryList(QDir::Files).isEmpty());
}

// Every library loaded costs every export its relocation at start; those of
// the window (Qt GUI, Widgets, WebEngine, Network) stay with the window
// program, which an export never starts.
TEST(Tessaly, CommandLineProgramLoadsNoWindowLibraries)
{
    const TRun ldd = RunProcess(QStringLiteral("ldd"), {QStringLiteral(TESSALY_BINARY_DIR "/app/tessaly")});
    ASSERT_EQ(ldd.exitCode, 0);
    ASSERT_TRUE(ldd.out.contains(QStringLiteral("libQt6Core"))) << ldd.out.toStdString();
    for (const char* library : {"libQt6Gui", "libQt6Widgets", "libQt6WebEngine", "libQt6Network", "libQt6Quick"})
        EXPECT_FALSE(ldd.out.contains(QLatin1String(library))) << library;
    const TRun window = RunProcess(QStringLiteral("ldd"), {QStringLiteral(TESSALY_BINARY_DIR "/app/tessaly-window")});
    EXPECT_TRUE(window.out.contains(QStringLiteral("libQt6Gui")));
}

TEST(Tessaly, EveryProgramSaysItsVersion)
{
    for (const QString& program : {QStringLiteral("tessaly"), QStringLiteral("tessaly-inspect")}) {
        const TRun run = RunProgram(program, {QStringLiteral("--version")});
        EXPECT_EQ(run.exitCode, 0) << program.toStdString();
        EXPECT_TRUE(run.out.contains(QRegularExpression(QStringLiteral("^(Tessaly|tessaly-inspect) \\d+\\.\\d+\\.\\d+\n$"))))
            << run.out.toStdString();
    }
    const TRun make = RunProcess(QStringLiteral(TESSALY_BINARY_DIR "/make-pst"), {QStringLiteral("--version")});
    EXPECT_EQ(make.exitCode, 0);
    EXPECT_TRUE(make.out.contains(QRegularExpression(QStringLiteral("\\d+\\.\\d+\\.\\d+")))) << make.out.toStdString();
}

TEST(Tessaly, UnknownKeyPrintsTheErrorPageAsText)
{
    const TRun run = RunProgram(QStringLiteral("tessaly"), {QStringLiteral("-bogus"), QStringLiteral("x")});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_TRUE(run.err.startsWith(
        QStringLiteral("Error:\n  Error in command line\n  unknown key -bogus\n \nCommand line: \n  -bogus x\n \n"
                       "----------------------------------------\n\nKeys:\n  -pst FILE  Outlook data file to view\n")))
        << run.err.toStdString();
    EXPECT_TRUE(run.err.contains(QStringLiteral("\n  -ExternalCSS FILE  Style sheet for HTML output\n")));
}

TEST(Tessaly, HelpAndRelativePstKey)
{
    const TRun help = RunProgram(QStringLiteral("tessaly"), {QStringLiteral("--help")});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_TRUE(help.out.contains(QRegularExpression(QStringLiteral("\n  -pst FILE +Outlook data file to view\n"))));
    EXPECT_TRUE(help.out.contains(QRegularExpression(QStringLiteral("\n  -AttachSave +Save attachments beside the output\n"))));

    // A lone "pst" key asks for the window; without a display the program
    // says so instead of failing somewhere in the toolkit.
    const TRun run = RunProgram(QStringLiteral("tessaly"), {QStringLiteral("-pst"), QStringLiteral("sample1.pst")}, TestData(QStringLiteral("pst")));
    EXPECT_EQ(run.exitCode, 1) << run.err.toStdString();
    EXPECT_TRUE(run.err.contains(QStringLiteral("no display"))) << run.err.toStdString();
}

namespace {

int CountFiles(const QString& dir, const QString& suffix)
{
    int count = 0;
    for (QDirIterator it(dir, QDir::Files, QDirIterator::Subdirectories); it.hasNext();)
        count += it.next().endsWith(suffix) ? 1 : 0;
    return count;
}

} // namespace

TEST(Export, WholeFileFromTheCommandLineParsesWithPython)
{
    QTemporaryDir out;
    const TRun run = RunProgram(QStringLiteral("tessaly"),
        {QStringLiteral("Outlook"), QStringLiteral("-pst"), TestData(QStringLiteral("pst/enron.pst")), QStringLiteral("-dest"), out.path(),
            QStringLiteral("-format"), QStringLiteral("eml"), QStringLiteral("-AttachSave")});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_TRUE(run.out.startsWith(QStringLiteral("71 messages: 71 written, 0 skipped by the filter, 0 failed; in "))) << run.out.toStdString();
    EXPECT_TRUE(run.err.contains(QStringLiteral("71/71"))); // progress
    EXPECT_EQ(CountFiles(out.path(), QStringLiteral(".eml")), 71);

    const QString python = QStandardPaths::findExecutable(QStringLiteral("python3"));
    if (python.isEmpty())
        GTEST_SKIP() << "python3 is not installed: the check with Python's email package is skipped";
    QProcess process;
    process.start(python, {QStringLiteral("-c"), QStringLiteral(
        "import email, email.policy, pathlib, sys\n"
        "n = 0\n"
        "for p in pathlib.Path(sys.argv[1]).rglob('*.eml'):\n"
        "    m = email.message_from_bytes(p.read_bytes(), policy=email.policy.default)\n"
        "    assert m['From'] is not None and m.get_content_type().startswith(('multipart/', 'text/')), p\n"
        "    for part in m.walk():\n"
        "        part.get_content() if not part.is_multipart() else None\n"
        "    n += 1\n"
        "print(n)\n"), out.path()});
    ASSERT_TRUE(process.waitForFinished(60000));
    EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
    EXPECT_EQ(process.readAllStandardOutput().trimmed(), QByteArray("71"));
}

TEST(Export, FolderFilterAndMessageFilesFromTheCommandLine)
{
    QTemporaryDir out;
    // One folder of the OST, filtered by subject.
    const TRun inbox = RunProgram(QStringLiteral("tessaly"),
        {QStringLiteral("Inbox\\"), QStringLiteral("-pst"), TestData(QStringLiteral("pst/pstextractortest@outlook.com.ost")),
            QStringLiteral("-dest"), out.path(), QStringLiteral("-filter"), QStringLiteral("subject=attachment")});
    EXPECT_EQ(inbox.exitCode, 0) << inbox.err.toStdString();
    EXPECT_TRUE(inbox.out.startsWith(QStringLiteral("10 messages: "))) << inbox.out.toStdString();
    EXPECT_FALSE(inbox.out.contains(QStringLiteral(" 0 skipped by the filter")));
    const int written = CountFiles(out.path(), QStringLiteral(".eml"));
    EXPECT_GT(written, 0);
    EXPECT_LT(written, 10);

    QTemporaryDir files;
    const TRun single = RunProgram(QStringLiteral("tessaly"),
        {TestData(QStringLiteral("msg/attachAndInline.msg")), TestData(QStringLiteral("eml/attachment_emails__attachment_pdf.eml")),
            QStringLiteral("-dest"), files.path()});
    EXPECT_EQ(single.exitCode, 0) << single.err.toStdString();
    EXPECT_EQ(CountFiles(files.path(), QStringLiteral(".eml")), 2);

    const TRun format = RunProgram(QStringLiteral("tessaly"), {QStringLiteral("-pst"), TestData(QStringLiteral("pst/sample1.pst")),
        QStringLiteral("-dest"), files.path(), QStringLiteral("-format"), QStringLiteral("xlsx")});
    EXPECT_EQ(format.exitCode, 2);
    for (const QString& jobs : {QStringLiteral("0"), QStringLiteral("many"), QStringLiteral("257")}) {
        const TRun bad = RunProgram(QStringLiteral("tessaly"),
            {QStringLiteral("-pst"), TestData(QStringLiteral("pst/sample1.pst")), QStringLiteral("-dest"), files.path(), QStringLiteral("-jobs"), jobs});
        EXPECT_EQ(bad.exitCode, 2) << jobs.toStdString();
        EXPECT_TRUE(bad.err.contains(QStringLiteral("-jobs"))) << bad.err.toStdString();
    }
    QTemporaryDir three;
    const TRun jobs = RunProgram(QStringLiteral("tessaly"),
        {QStringLiteral("-pst"), TestData(QStringLiteral("pst/enron.pst")), QStringLiteral("-dest"), three.path(), QStringLiteral("-jobs"), QStringLiteral("3")});
    EXPECT_EQ(jobs.exitCode, 0) << jobs.err.toStdString();
    EXPECT_EQ(CountFiles(three.path(), QStringLiteral(".eml")), 71);
    const TRun folder = RunProgram(QStringLiteral("tessaly"), {QStringLiteral("No such folder\\"), QStringLiteral("-pst"),
        TestData(QStringLiteral("pst/sample1.pst")), QStringLiteral("-dest"), files.path()});
    EXPECT_EQ(folder.exitCode, 7);
    EXPECT_TRUE(folder.err.contains(QStringLiteral("no folder"))) << folder.err.toStdString();
}

TEST(Export, IntoADataFileFromTheCommandLine)
{
    QTemporaryDir out;
    const QString file = out.filePath(QStringLiteral("archive.pst"));
    const QStringList args{QStringLiteral("Outlook"), QStringLiteral("-pst"), TestData(QStringLiteral("pst/enron.pst")),
        QStringLiteral("-dest"), file, QStringLiteral("-format"), QStringLiteral("pst"), QStringLiteral("-KeepFolders")};
    const TRun run = RunProgram(QStringLiteral("tessaly"), args);
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_TRUE(run.out.startsWith(QStringLiteral("71 messages: 71 written"))) << run.out.toStdString();
    const TRun inspect = RunProgram(QStringLiteral("tessaly-inspect"), {QStringLiteral("--json"), file});
    ASSERT_EQ(inspect.exitCode, 0) << inspect.err.toStdString();
    // The source's folders, with their item counts, inside the new file.
    const QString tree = inspect.out;
    for (const char* folder : {"\"MLOKAY (Non-Privileged)\"", "\"TW-Commercial Group\"", "\"Personal\""})
        EXPECT_TRUE(tree.contains(QLatin1String(folder))) << folder;
    EXPECT_TRUE(tree.contains(QStringLiteral("\"items\": 47"))) << tree.toStdString();

    // A second run keeps the first file and writes another beside it.
    const TRun again = RunProgram(QStringLiteral("tessaly"), args);
    EXPECT_EQ(again.exitCode, 0) << again.err.toStdString();
    EXPECT_TRUE(QFileInfo::exists(out.filePath(QStringLiteral("archive (1).pst"))));
    EXPECT_EQ(RunProgram(QStringLiteral("tessaly"), {QStringLiteral("-dest"), file, QStringLiteral("-format"), QStringLiteral("docx")}).exitCode, 2);
}

// -format pdf: the command-line program hands the run to the window
// program, which prints each page off screen (no display needed): a PDF per
// message that pdftotext reads the subject from, on the paper asked for.
TEST(Export, PdfFilesFromTheCommandLine)
{
    QTemporaryDir out;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove(QStringLiteral("DISPLAY"));
    env.remove(QStringLiteral("WAYLAND_DISPLAY"));
    env.remove(QStringLiteral("QT_QPA_PLATFORM"));
    QProcess run;
    run.setProcessEnvironment(env);
    run.start(QStringLiteral(TESSALY_BINARY_DIR "/app/tessaly"),
        {QStringLiteral("-pst"), TestData(QStringLiteral("pst/sample2.pst")), QStringLiteral("-dest"), out.path(), QStringLiteral("-format"),
            QStringLiteral("pdf"), QStringLiteral("-Paper"), QStringLiteral("letter"), QStringLiteral("-Landscape")});
    ASSERT_TRUE(run.waitForFinished(120000));
    const QString err = QString::fromUtf8(run.readAllStandardError());
    ASSERT_EQ(run.exitCode(), 0) << err.toStdString();
    const QString summary = QString::fromUtf8(run.readAllStandardOutput());
    EXPECT_TRUE(summary.contains(QStringLiteral(" written, 0 skipped by the filter, 0 failed"))) << summary.toStdString();
    const QFileInfoList pdfs = QDir(out.path()).entryInfoList({QStringLiteral("*.pdf")}, QDir::Files, QDir::Name);
    ASSERT_FALSE(pdfs.isEmpty());
    const TRun inspect = RunProgram(QStringLiteral("tessaly-inspect"), {QStringLiteral("--json"), QStringLiteral("--messages"), TestData(QStringLiteral("pst/sample2.pst"))});
    for (const QFileInfo& pdf : pdfs) {
        const TRun text = RunProcess(QStringLiteral("pdftotext"), {pdf.absoluteFilePath(), QStringLiteral("-")});
        ASSERT_EQ(text.exitCode, 0) << "pdftotext (poppler-utils) is needed";
        // The subject is the file name's tail ("NN. date - subject.pdf").
        const QString subject = pdf.completeBaseName().section(QStringLiteral(" - "), 1).simplified();
        EXPECT_TRUE(text.out.simplified().contains(subject)) << subject.toStdString() << "\n" << text.out.toStdString();
        const TRun info = RunProcess(QStringLiteral("pdfinfo"), {pdf.absoluteFilePath()});
        EXPECT_TRUE(info.out.contains(QStringLiteral("792 x 612 pts"))) << info.out.toStdString();
    }
    const TRun paper = RunProgram(QStringLiteral("tessaly"), {QStringLiteral("-pst"), TestData(QStringLiteral("pst/sample2.pst")),
                                                              QStringLiteral("-dest"), out.path(), QStringLiteral("-format"),
                                                              QStringLiteral("pdf"), QStringLiteral("-Paper"), QStringLiteral("b9")});
    EXPECT_EQ(paper.exitCode, 2);
    EXPECT_TRUE(paper.err.contains(QStringLiteral("unknown paper \"b9\""))) << paper.err.toStdString();
}

// -format msg, txt and mbox from the command line: the files each writes,
// read back (an .msg by tessaly-inspect, the mbox by Python's mailbox).
TEST(Export, MsgTextAndMBoxFromTheCommandLine)
{
    QTemporaryDir out;
    const auto run = [&](const QString& format, const QString& dest) {
        return RunProgram(QStringLiteral("tessaly"), {QStringLiteral("-pst"), TestData(QStringLiteral("pst/enron.pst")),
                                                         QStringLiteral("-dest"), dest, QStringLiteral("-format"), format});
    };
    for (const QString& format : {QStringLiteral("msg"), QStringLiteral("txt")}) {
        const TRun written = run(format, out.filePath(format));
        ASSERT_EQ(written.exitCode, 0) << written.err.toStdString();
        EXPECT_TRUE(written.out.startsWith(QStringLiteral("71 messages: 71 written"))) << written.out.toStdString();
        EXPECT_EQ(QDir(out.filePath(format)).entryList({QStringLiteral("*.") + format}, QDir::Files).size(), 71);
    }
    const QString msg = QDir(out.filePath(QStringLiteral("msg"))).entryInfoList({QStringLiteral("*.msg")}, QDir::Files, QDir::Name)
                            .first()
                            .absoluteFilePath();
    const TRun inspect = RunProgram(QStringLiteral("tessaly-inspect"), {QStringLiteral("--json"), msg});
    ASSERT_EQ(inspect.exitCode, 0) << inspect.err.toStdString();
    EXPECT_TRUE(inspect.out.contains(QStringLiteral("\"format\": \"message\""))) << inspect.out.toStdString();

    // An mbox destination folder gets "EMails.mbox"; a name ending ".mbox" is the file.
    const TRun mbox = run(QStringLiteral("mbox"), out.filePath(QStringLiteral("mbox")));
    ASSERT_EQ(mbox.exitCode, 0) << mbox.err.toStdString();
    const QString file = out.filePath(QStringLiteral("mbox/EMails.mbox"));
    ASSERT_TRUE(QFileInfo(file).isFile());
    const TRun named = run(QStringLiteral("mbox"), out.filePath(QStringLiteral("all.mbox")));
    ASSERT_EQ(named.exitCode, 0) << named.err.toStdString();
    ASSERT_TRUE(QFileInfo(out.filePath(QStringLiteral("all.mbox"))).isFile());
    const TRun python = RunProcess(QStringLiteral("python3"),
        {QStringLiteral("-c"), QStringLiteral("import mailbox, sys; print(len(mailbox.mbox(sys.argv[1], create=False)))"), file});
    ASSERT_EQ(python.exitCode, 0) << python.err.toStdString();
    EXPECT_EQ(python.out.trimmed(), QStringLiteral("71"));

    const TRun unknown = run(QStringLiteral("docx"), out.filePath(QStringLiteral("x")));
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_TRUE(unknown.err.contains(QStringLiteral("eml, msg, html, xhtml, pdf, txt, mbox, vcf, ics and pst"))) << unknown.err.toStdString();
}

TEST(Export, DamagedAndFalseMessageFilesAreErrorsWithExitCode7)
{
    QTemporaryDir in, out;
    QFile whole(TestData(QStringLiteral("msg/sent.msg")));
    ASSERT_TRUE(whole.open(QIODevice::ReadOnly));
    const QString damaged = in.filePath(QStringLiteral("cut.msg"));
    const QString empty = in.filePath(QStringLiteral("empty.eml"));
    QFile cut(damaged);
    ASSERT_TRUE(cut.open(QIODevice::WriteOnly));
    cut.write(whole.readAll().left(5000));
    cut.close();
    QFile(empty).open(QIODevice::WriteOnly);

    const TRun run = RunProgram(QStringLiteral("tessaly"),
        {damaged, empty, TestData(QStringLiteral("eml/attachment_emails__attachment_pdf.eml")), QStringLiteral("-dest"), out.path()});
    EXPECT_EQ(run.exitCode, 7) << run.err.toStdString();
    EXPECT_TRUE(run.err.contains(QStringLiteral("cut.msg: damaged message file"))) << run.err.toStdString();
    EXPECT_TRUE(run.err.contains(QStringLiteral("empty.eml: not a message file"))) << run.err.toStdString();
    EXPECT_TRUE(run.out.startsWith(QStringLiteral("3 messages: 1 written, 0 skipped by the filter, 2 failed"))) << run.out.toStdString();
    // Only the good one is written; nothing empty stands for the others.
    EXPECT_EQ(CountFiles(out.path(), QStringLiteral(".eml")), 1);
}

// -report FILE.json: the run in a form a script reads; its counts agree with
// the summary line, per folder and in all, and a run that fails has one too.
TEST(Export, ReportOfARunAndOfAFailedOne)
{
    QTemporaryDir out;
    const QString reportFile = out.filePath(QStringLiteral("report.json"));
    const QString source = TestData(QStringLiteral("pst/enron.pst"));
    const TRun run = RunProgram(QStringLiteral("tessaly"), {QStringLiteral("-pst"), source, QStringLiteral("-dest"), out.filePath(QStringLiteral("eml")),
                                                            QStringLiteral("-filter"), QStringLiteral("attach=include"), QStringLiteral("-KeepFolders"),
                                                            QStringLiteral("-report"), reportFile});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    QFile file(reportFile);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QJsonObject report = QJsonDocument::fromJson(file.readAll()).object();
    file.close();
    const QJsonObject counts = report[QLatin1String("counts")].toObject();
    static const QRegularExpression Summary(QStringLiteral("^(\\d+) messages: (\\d+) written, (\\d+) skipped by the filter, (\\d+) failed"));
    const auto summary = Summary.match(run.out);
    ASSERT_TRUE(summary.hasMatch()) << run.out.toStdString();
    EXPECT_EQ(counts[QLatin1String("entries")].toInt(), summary.captured(1).toInt());
    EXPECT_EQ(counts[QLatin1String("written")].toInt(), summary.captured(2).toInt());
    EXPECT_EQ(counts[QLatin1String("skipped")].toInt(), summary.captured(3).toInt());
    EXPECT_EQ(counts[QLatin1String("failed")].toInt(), summary.captured(4).toInt());
    EXPECT_GT(counts[QLatin1String("skipped")].toInt(), 0); // the filter took some
    EXPECT_EQ(counts[QLatin1String("written")].toInt(), CountFiles(out.filePath(QStringLiteral("eml")), QStringLiteral(".eml")));
    int entries = 0, written = 0;
    for (const auto& folder : report[QLatin1String("perFolder")].toArray()) {
        entries += folder.toObject()[QLatin1String("entries")].toInt();
        written += folder.toObject()[QLatin1String("written")].toInt();
        EXPECT_EQ(folder.toObject()[QLatin1String("source")].toString(), QFileInfo(source).absoluteFilePath());
    }
    EXPECT_EQ(entries, counts[QLatin1String("entries")].toInt());
    EXPECT_EQ(written, counts[QLatin1String("written")].toInt());
    EXPECT_GT(report[QLatin1String("perFolder")].toArray().size(), 1);
    EXPECT_EQ(report[QLatin1String("sources")].toArray().first().toString(), QFileInfo(source).absoluteFilePath());
    EXPECT_EQ(report[QLatin1String("format")].toString(), QStringLiteral("eml"));
    EXPECT_EQ(report[QLatin1String("exitCode")].toInt(), 0);
    EXPECT_EQ(report[QLatin1String("options")].toObject()[QLatin1String("filter")].toString(), QStringLiteral("attach=include"));
    EXPECT_TRUE(report[QLatin1String("options")].toObject()[QLatin1String("keepFolders")].toBool());
    const TRun version = RunProgram(QStringLiteral("tessaly"), {QStringLiteral("--version")});
    EXPECT_TRUE(version.out.contains(report[QLatin1String("version")].toString())) << version.out.toStdString();
    const QDateTime started = QDateTime::fromString(report[QLatin1String("started")].toString(), Qt::ISODateWithMs);
    const QDateTime ended = QDateTime::fromString(report[QLatin1String("ended")].toString(), Qt::ISODateWithMs);
    ASSERT_TRUE(started.isValid() && ended.isValid());
    EXPECT_LE(started, ended);
    EXPECT_TRUE(report[QLatin1String("failures")].toArray().isEmpty());

    // Message files, one of them damaged: its failure with the reason.
    QFile whole(TestData(QStringLiteral("msg/sent.msg")));
    ASSERT_TRUE(whole.open(QIODevice::ReadOnly));
    const QString damaged = out.filePath(QStringLiteral("cut.msg"));
    QFile cut(damaged);
    ASSERT_TRUE(cut.open(QIODevice::WriteOnly));
    cut.write(whole.readAll().left(5000));
    cut.close();
    const TRun mixed = RunProgram(QStringLiteral("tessaly"), {damaged, TestData(QStringLiteral("eml/attachment_emails__attachment_pdf.eml")),
                                                              QStringLiteral("-dest"), out.filePath(QStringLiteral("files")),
                                                              QStringLiteral("-report"), reportFile});
    EXPECT_EQ(mixed.exitCode, 7);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QJsonObject second = QJsonDocument::fromJson(file.readAll()).object();
    file.close();
    EXPECT_EQ(second[QLatin1String("exitCode")].toInt(), 7);
    const QJsonArray failures = second[QLatin1String("failures")].toArray();
    ASSERT_EQ(failures.size(), 1);
    EXPECT_EQ(failures[0].toObject()[QLatin1String("source")].toString(), damaged);
    EXPECT_TRUE(failures[0].toObject()[QLatin1String("reason")].toString().contains(QStringLiteral("damaged"))) << failures[0].toObject()[QLatin1String("reason")].toString().toStdString();
    EXPECT_EQ(second[QLatin1String("counts")].toObject()[QLatin1String("written")].toInt(), 1);

    // A run that cannot start: the report says why.
    const TRun missing = RunProgram(QStringLiteral("tessaly"), {QStringLiteral("-pst"), out.filePath(QStringLiteral("none.pst")),
                                                                QStringLiteral("-dest"), out.path(), QStringLiteral("-report"), reportFile});
    EXPECT_EQ(missing.exitCode, 7);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QJsonObject third = QJsonDocument::fromJson(file.readAll()).object();
    EXPECT_EQ(third[QLatin1String("exitCode")].toInt(), 7);
    EXPECT_TRUE(third[QLatin1String("error")].toString().contains(QStringLiteral("none.pst"))) << third[QLatin1String("error")].toString().toStdString();
    EXPECT_EQ(third[QLatin1String("counts")].toObject()[QLatin1String("written")].toInt(), 0);
}
