// Damaged copies of every sample file, cut short and with single bits
// flipped, read completely by our reader and by libpff: folders, tables,
// every property, attachment data and attached messages. Our reader must
// neither crash nor hang, and over all the copies it must recover at least
// as many items (items whose properties could be read) as libpff does.
//
// libpff reads each copy in a child process with a time limit, so its own
// crashes and hangs on damaged files are counted rather than fatal.
//
// TESSALY_DAMAGE_FLIPS sets the copies with a flipped bit per sample; the
// default keeps the test short in the sanitizer build.

#include "ReaderWalk.h"
#include "TestUtil.h"

#include <QFile>
#include <QTemporaryDir>
#include <csignal>
#include <cstdio>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <sys/wait.h>
#include <unistd.h>

using namespace tessaly;
using namespace tessaly::test;

namespace {

constexpr int DefaultFlips = 12;
constexpr int Truncations = 16;
constexpr unsigned PffSecondsPerCopy = 120;

using TIds = std::set<uint32_t>;

// The items our reader recovers from a file.
TIds OurItems(const QString& path)
{
    TIds items;
    std::shared_ptr<pstfile::TPstFile> file;
    try {
        file = pstfile::TPstFile::Open(path);
    } catch (const pstfile::EPstFileError&) {
        return items;
    }
    std::vector<uint32_t> stack{pstfile::nidRootFolder};
    std::set<uint32_t> seen;
    while (!stack.empty() && seen.size() < size_t(MaxChildren)) {
        const uint32_t folder = stack.back();
        stack.pop_back();
        if (!seen.insert(folder).second)
            continue;
        (void)ReadOurs(*file, file->Properties(folder));
        for (uint32_t nid : file->Contents(folder))
            if (const auto message = file->OpenMessage(nid))
                if (ReadOurItem(*file, *message).props.HasValues())
                    items.insert(nid);
        for (uint32_t child : file->SubFolders(folder))
            stack.push_back(child);
    }
    return items;
}

// The items libpff recovers, written to fd as they are read.
void PffItems(const QString& path, int fd)
{
    const TPffFile file = OpenPff(path);
    if (!file)
        return;
    TPffItem root;
    if (libpff_file_get_root_folder(file.Get(), root.Out(), nullptr) != 1 || !root)
        return;
    std::vector<TPffItem> stack;
    stack.push_back(std::move(root));
    std::set<uint32_t> seen;
    while (!stack.empty() && seen.size() < size_t(MaxChildren)) {
        TPffItem folder = std::move(stack.back());
        stack.pop_back();
        if (!seen.insert(PffIdentifier(folder.Get()).value_or(0)).second)
            continue;
        (void)ReadPffProps(folder.Get());
        for (auto& [id, message] : PffChildren(folder.Get(), false))
            if (ReadPffItem(message.Get()).props.HasValues())
                if (write(fd, &id, sizeof id) != sizeof id)
                    return;
        for (auto& [id, child] : PffChildren(folder.Get(), true))
            stack.push_back(std::move(child));
    }
}

struct TPffRun {
    TIds items;
    bool crashed = false, timedOut = false;
};

TPffRun PffItemsInChild(const QString& path)
{
    TPffRun run;
    int fds[2];
    if (pipe(fds) != 0)
        return run;
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        alarm(PffSecondsPerCopy);
        PffItems(path, fds[1]);
        close(fds[1]);
        _exit(0);
    }
    close(fds[1]);
    uint32_t id;
    while (read(fds[0], &id, sizeof id) == sizeof id)
        run.items.insert(id);
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    run.timedOut = WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM;
    run.crashed = !run.timedOut && !(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    return run;
}

struct TTotals {
    long long copies = 0, ours = 0, pff = 0, pffCrashes = 0, pffTimeouts = 0, oursFewer = 0;
    void Add(const TTotals& t)
    {
        copies += t.copies;
        ours += t.ours;
        pff += t.pff;
        pffCrashes += t.pffCrashes;
        pffTimeouts += t.pffTimeouts;
        oursFewer += t.oursFewer;
    }
};

// Reads one damaged copy with both readers and counts what each recovers.
void ReadCopy(const QString& path, const QString& what, TTotals& totals)
{
    const TIds ours = OurItems(path);
    const TPffRun pff = PffItemsInChild(path);
    ++totals.copies;
    totals.ours += qint64(ours.size());
    totals.pff += qint64(pff.items.size());
    totals.pffCrashes += pff.crashed;
    totals.pffTimeouts += pff.timedOut;
    if (ours.size() < pff.items.size()) {
        ++totals.oursFewer;
        std::printf("  %s: ours %zu items, libpff %zu\n", qPrintable(what), ours.size(), pff.items.size());
    }
}

int FlipsPerSample()
{
    bool ok = false;
    const int n = qEnvironmentVariableIntValue("TESSALY_DAMAGE_FLIPS", &ok);
    return ok && n >= 0 ? n : DefaultFlips;
}

TEST(ReaderDamage, DamagedSamplesNeitherCrashNorHangAndOurReaderRecoversAtLeastAsMuchAsLibpff)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const int flips = FlipsPerSample();
    TTotals all;
    for (const char* sample : {"sample1.pst", "sample2.pst", "submessage.pst", "test_ansi.pst", "test_unicode.pst",
             "enron.pst", "pstextractortest@outlook.com.ost"}) {
        QFile source(TestData(QStringLiteral("pst/") + QLatin1String(sample)));
        ASSERT_TRUE(source.open(QIODevice::ReadOnly));
        const QByteArray original = source.readAll();
        const qint64 size = original.size();
        TTotals totals;

        // Undamaged, both readers find the same items.
        const QString copy = dir.filePath(QStringLiteral("copy.pst"));
        {
            QFile out(copy);
            ASSERT_TRUE(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
            ASSERT_EQ(out.write(original), size);
        }
        const TIds whole = OurItems(copy);
        const TPffRun wholePff = PffItemsInChild(copy);
        EXPECT_EQ(whole, wholePff.items) << sample;
        ASSERT_FALSE(whole.empty()) << sample;

        // Cut short: in the header, then spread over the file.
        const qint64 header[] = {64, 300, 511, 600};
        std::vector<qint64> cuts(std::begin(header), std::end(header));
        for (int k = 1; int(cuts.size()) < Truncations; ++k)
            cuts.push_back(size * k / (Truncations - int(std::size(header)) + 1));
        const QString cutPath = dir.filePath(QStringLiteral("cut.pst"));
        for (qint64 cut : cuts) {
            QFile out(cutPath);
            ASSERT_TRUE(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
            ASSERT_EQ(out.write(original.constData(), cut), cut);
            out.close();
            ReadCopy(cutPath, QStringLiteral("%1 cut at %2").arg(QLatin1String(sample)).arg(cut), totals);
        }

        // One bit flipped at a time in one working copy, restored after.
        std::mt19937_64 random(0x7e55a1u + uint64_t(size));
        QFile work(copy);
        for (int i = 0; i < flips; ++i) {
            const qint64 at = qint64(random() % uint64_t(size));
            const char bit = char(1 << (random() % 8));
            ASSERT_TRUE(work.open(QIODevice::ReadWrite));
            ASSERT_TRUE(work.seek(at));
            ASSERT_TRUE(work.putChar(char(original[at] ^ bit)));
            work.close();
            ReadCopy(copy, QStringLiteral("%1 bit %2 of byte %3 flipped").arg(QLatin1String(sample)).arg(int(uchar(bit))).arg(at),
                totals);
            ASSERT_TRUE(work.open(QIODevice::ReadWrite));
            ASSERT_TRUE(work.seek(at));
            ASSERT_TRUE(work.putChar(original[at]));
            work.close();
        }
        std::printf("%-36s %4lld copies: ours %7lld items, libpff %7lld (libpff crashed %lld, timed out %lld; "
                    "ours fewer in %lld copies)\n",
            sample, totals.copies, totals.ours, totals.pff, totals.pffCrashes, totals.pffTimeouts, totals.oursFewer);
        all.Add(totals);
    }
    std::printf("%-36s %4lld copies: ours %7lld items, libpff %7lld (libpff crashed %lld, timed out %lld; "
                "ours fewer in %lld copies)\n",
        "all", all.copies, all.ours, all.pff, all.pffCrashes, all.pffTimeouts, all.oursFewer);
    ::testing::Test::RecordProperty("items_ours", std::to_string(all.ours));
    ::testing::Test::RecordProperty("items_libpff", std::to_string(all.pff));
    EXPECT_GE(all.ours, all.pff);
}

} // namespace
