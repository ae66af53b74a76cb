// Our data-file reader against libpff on the same files, in one run:
// - the folder tree (names and item counts of every folder), against
//   pffinfo, which opens the file and prints its store and folders;
// - every property of every item, recipient and attachment, attachment data
//   and attached messages, against the same walk through libpff's API.
// Each walk runs in a child process, so times include the process start and
// the peak memory is the child's. Prints medians and the ratios.
//
// Usage: bench-reader [--runs N] [--skip-pffinfo] FILE...
//        bench-reader --walk tree|all|pff-all FILE   (one walk; prints counts)

#include "BenchUtil.h"
#include "pstfile/Reader.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QStandardPaths>
#include <cstdio>
#include <libpff.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using namespace tessaly;
using tessaly::bench::Median;

namespace {

struct TCounts {
    long long folders = 0, items = 0, properties = 0, bytes = 0;
};

// --- our reader ------------------------------------------------------------------

void WalkMessage(const pstfile::TMessage& message, TCounts& counts, int depth);

void ReadAll(const pstfile::TProperties& props, TCounts& counts)
{
    for (const auto& e : props.Entries()) {
        ++counts.properties;
        if (const auto v = props.Value(e))
            counts.bytes += v->size();
    }
}

void WalkMessage(const pstfile::TMessage& message, TCounts& counts, int depth)
{
    ReadAll(message.Properties(), counts);
    for (const auto& r : message.Recipients())
        ReadAll(r, counts);
    for (size_t i = 0; i < message.AttachmentCount(); ++i) {
        const auto a = message.OpenAttachment(i);
        if (!a)
            continue;
        ReadAll(a->Properties(), counts);
        if (auto inner = a->Embedded(); inner && depth < 16) {
            WalkMessage(*inner, counts, depth + 1);
            continue;
        }
        std::vector<char> buffer(65536);
        for (qint64 at = 0, n; (n = a->ReadData(at, buffer.data(), qint64(buffer.size()))) > 0; at += n)
            counts.bytes += n;
    }
}

TCounts WalkOurs(const QString& fileName, bool items)
{
    TCounts counts;
    const auto file = pstfile::TPstFile::Open(fileName);
    std::vector<uint32_t> folders{pstfile::nidRootFolder};
    while (!folders.empty()) {
        const uint32_t folder = folders.back();
        folders.pop_back();
        ++counts.folders;
        const auto props = file->Properties(folder);
        if (!items) {
            counts.bytes += props.String(pstfile::pid::DisplayName).value_or(QString()).size();
            counts.items += file->ContentCount(folder);
        } else {
            ReadAll(props, counts);
            for (uint32_t nid : file->Contents(folder)) {
                ++counts.items;
                if (const auto message = file->OpenMessage(nid))
                    WalkMessage(*message, counts, 0);
            }
        }
        for (uint32_t child : file->SubFolders(folder))
            if (folders.size() < 1000000)
                folders.push_back(child);
    }
    return counts;
}

// --- libpff ----------------------------------------------------------------------

void PffReadSets(libpff_item_t* item, TCounts& counts)
{
    int sets = 0;
    if (libpff_item_get_number_of_record_sets(item, &sets, nullptr) != 1)
        return;
    for (int s = 0; s < sets; ++s) {
        libpff_record_set_t* set = nullptr;
        if (libpff_item_get_record_set_by_index(item, s, &set, nullptr) != 1)
            continue;
        int entries = 0;
        libpff_record_set_get_number_of_entries(set, &entries, nullptr);
        for (int e = 0; e < entries; ++e) {
            libpff_record_entry_t* entry = nullptr;
            if (libpff_record_set_get_entry_by_index(set, e, &entry, nullptr) != 1)
                continue;
            ++counts.properties;
            size_t size = 0;
            if (libpff_record_entry_get_data_size(entry, &size, nullptr) == 1 && size > 0) {
                std::vector<uint8_t> data(size);
                if (libpff_record_entry_get_data(entry, data.data(), size, nullptr) == 1)
                    counts.bytes += qint64(size);
            }
            libpff_record_entry_free(&entry, nullptr);
        }
        libpff_record_set_free(&set, nullptr);
    }
}

void PffWalkMessage(libpff_item_t* message, TCounts& counts, int depth)
{
    PffReadSets(message, counts);
    libpff_item_t* recipients = nullptr;
    if (libpff_message_get_recipients(message, &recipients, nullptr) == 1) {
        PffReadSets(recipients, counts);
        libpff_item_free(&recipients, nullptr);
    }
    int attachments = 0;
    libpff_message_get_number_of_attachments(message, &attachments, nullptr);
    for (int i = 0; i < attachments; ++i) {
        libpff_item_t* a = nullptr;
        if (libpff_message_get_attachment(message, i, &a, nullptr) != 1)
            continue;
        PffReadSets(a, counts);
        int type = 0;
        libpff_attachment_get_type(a, &type, nullptr);
        libpff_item_t* inner = nullptr;
        if (type == 'i' && depth < 16 && libpff_attachment_get_item(a, &inner, nullptr) == 1) {
            PffWalkMessage(inner, counts, depth + 1);
            libpff_item_free(&inner, nullptr);
        } else if (type == 'd') {
            size64_t size = 0;
            if (libpff_attachment_get_data_size(a, &size, nullptr) == 1 && size > 0) {
                std::vector<uint8_t> buffer(65536);
                libpff_attachment_data_seek_offset(a, 0, SEEK_SET, nullptr);
                ssize_t n;
                while ((n = libpff_attachment_data_read_buffer(a, buffer.data(), buffer.size(), nullptr)) > 0)
                    counts.bytes += n;
            }
        }
        libpff_item_free(&a, nullptr);
    }
}

TCounts WalkPff(const QString& fileName)
{
    TCounts counts;
    libpff_file_t* file = nullptr;
    if (libpff_file_initialize(&file, nullptr) != 1
        || libpff_file_open(file, fileName.toLocal8Bit().constData(), LIBPFF_OPEN_READ, nullptr) != 1) {
        std::fprintf(stderr, "libpff cannot open %s\n", qUtf8Printable(fileName));
        return counts;
    }
    libpff_item_t* root = nullptr;
    if (libpff_file_get_root_folder(file, &root, nullptr) == 1) {
        std::vector<libpff_item_t*> folders{root};
        while (!folders.empty()) {
            libpff_item_t* folder = folders.back();
            folders.pop_back();
            ++counts.folders;
            PffReadSets(folder, counts);
            int messages = 0;
            libpff_folder_get_number_of_sub_messages(folder, &messages, nullptr);
            for (int i = 0; i < messages; ++i) {
                libpff_item_t* message = nullptr;
                if (libpff_folder_get_sub_message(folder, i, &message, nullptr) != 1)
                    continue;
                ++counts.items;
                PffWalkMessage(message, counts, 0);
                libpff_item_free(&message, nullptr);
            }
            int subs = 0;
            libpff_folder_get_number_of_sub_folders(folder, &subs, nullptr);
            for (int i = 0; i < subs; ++i) {
                libpff_item_t* sub = nullptr;
                if (libpff_folder_get_sub_folder(folder, i, &sub, nullptr) == 1)
                    folders.push_back(sub);
            }
            libpff_item_free(&folder, nullptr);
        }
    }
    libpff_file_close(file, nullptr);
    libpff_file_free(&file, nullptr);
    return counts;
}

// --- the comparison --------------------------------------------------------------

struct TRun {
    double ms = 0;
    long peakKiB = 0;
    QByteArray output;
};

// Runs a program in a child process: wall time and the child's peak memory.
TRun RunChild(const QStringList& command)
{
    TRun run;
    int pipefd[2];
    if (pipe(pipefd) != 0)
        return run;
    std::vector<QByteArray> args;
    for (const QString& a : command)
        args.push_back(a.toLocal8Bit());
    std::vector<char*> argv;
    for (QByteArray& a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    QElapsedTimer timer;
    timer.start();
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(pipefd[1], 1);
        close(pipefd[0]);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    close(pipefd[1]);
    char buffer[4096];
    ssize_t n;
    while ((n = read(pipefd[0], buffer, sizeof buffer)) > 0)
        run.output.append(buffer, qsizetype(n));
    close(pipefd[0]);
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    run.ms = timer.nsecsElapsed() / 1e6;
    run.peakKiB = usage.ru_maxrss;
    return run;
}

struct TSeries {
    std::vector<double> ms;
    long peak = 0;
    QByteArray output;
    void Add(const TRun& r)
    {
        ms.push_back(r.ms);
        peak = std::max(peak, r.peakKiB);
        output = r.output;
    }
};

void Row(const char* what, const TSeries& ours, const TSeries& theirs, const char* tool)
{
    const double a = Median(ours.ms), b = Median(theirs.ms);
    if (theirs.ms.empty()) {
        std::printf("  %-28s %10.1f ms %8ld KiB   %-10s %12s\n", what, a, ours.peak, tool, "not run");
        return;
    }
    std::printf("  %-28s %10.1f ms %8ld KiB   %-10s %10.1f ms %8ld KiB   %7.1fx faster\n", what, a, ours.peak, tool, b,
        theirs.peak, a > 0 ? b / a : 0);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    if (args.size() == 3 && args[0] == QLatin1String("--walk")) {
        try {
            TCounts c;
            if (args[1] == QLatin1String("pff-all"))
                c = WalkPff(args[2]);
            else
                c = WalkOurs(args[2], args[1] == QLatin1String("all"));
            std::printf("%lld folders, %lld items, %lld properties, %lld bytes\n", c.folders, c.items, c.properties,
                c.bytes);
        } catch (const pstfile::EPstFileError& e) {
            std::fprintf(stderr, "%s\n", qUtf8Printable(e.Message()));
            return 1;
        }
        return 0;
    }
    int runs = 3;
    bool pffinfo = true, all = true;
    QStringList files;
    for (int i = 0; i < args.size(); ++i) {
        if (args[i] == QLatin1String("--runs") && i + 1 < args.size())
            runs = std::max(1, args[++i].toInt());
        else if (args[i] == QLatin1String("--skip-pffinfo"))
            pffinfo = false;
        else if (args[i] == QLatin1String("--tree-only"))
            all = false;
        else
            files << args[i];
    }
    if (files.isEmpty()) {
        std::fprintf(stderr, "Usage: bench-reader [--runs N] [--skip-pffinfo] [--tree-only] FILE...\n");
        return 2;
    }
    const QString self = QCoreApplication::applicationFilePath();
    const QString pffinfoPath = QStandardPaths::findExecutable(QStringLiteral("pffinfo"));
    for (const QString& file : files) {
        std::printf("%s (%lld bytes)\n", qUtf8Printable(file), static_cast<long long>(QFileInfo(file).size()));
        TSeries tree, info, ours, theirs;
        for (int r = 0; r < runs; ++r) {
            tree.Add(RunChild({self, QStringLiteral("--walk"), QStringLiteral("tree"), file}));
            if (pffinfo && !pffinfoPath.isEmpty())
                info.Add(RunChild({pffinfoPath, file}));
            if (all) {
                ours.Add(RunChild({self, QStringLiteral("--walk"), QStringLiteral("all"), file}));
                theirs.Add(RunChild({self, QStringLiteral("--walk"), QStringLiteral("pff-all"), file}));
            }
        }
        std::printf("  tree: %s", tree.output.constData());
        Row("folder tree", tree, info, "pffinfo");
        if (all) {
            std::printf("  ours:   %s", ours.output.constData());
            std::printf("  libpff: %s", theirs.output.constData());
            Row("every property of every item", ours, theirs, "libpff");
        }
    }
    return 0;
}
