// Renders every message of a data file to HTML with the export's default
// options and prints messages per second (median of several runs).

#include "mail/MailMsgHTML.h"
#include "mail/Pictures.h"
#include "pst/PSTFile.h"
#include "pst/PSTMessage.h"
#include "tasks/MailProperties.h"

#include <QElapsedTimer>
#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

int RenderFolder(tessaly::pst::TPSTFolder* folder, const tessaly::mail::TMailHTMLOptions& options, qint64& bytes)
{
    int count = 0;
    for (int i = 0; i < folder->ItemCount(); ++i) {
        const auto message = tessaly::pst::adapter::WrapItem(folder->GetItem(i), false);
        if (!message)
            continue;
        const tessaly::mail::TMessageHTMLTask task(*message);
        bytes += tessaly::mail::TMailMsgHTML::Render(*message, options, task).size();
        ++count;
    }
    for (int i = 0; i < folder->FolderCount(); ++i)
        count += RenderFolder(folder->GetFolder(i), options, bytes);
    return count;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "Usage: bench-render-html FILE [RUNS]\n");
        return 2;
    }
    tessaly::mail::UseQtPictures();
    const int runs = argc > 2 ? std::max(1, atoi(argv[2])) : 5;
    const tessaly::mail::TMailHTMLOptions options = tessaly::tasks::TMailProperties().HTMLOptions();
    std::vector<double> rates;
    int messages = 0;
    for (int run = 0; run < runs; ++run) {
        tessaly::pst::TPSTFile file(QString::fromLocal8Bit(argv[1]));
        if (!file.RootFolder()) {
            std::fprintf(stderr, "Can not open %s\n", argv[1]);
            return 1;
        }
        qint64 bytes = 0;
        QElapsedTimer timer;
        timer.start();
        messages = RenderFolder(file.RootFolder(), options, bytes);
        rates.push_back(messages / (timer.nsecsElapsed() / 1e9));
    }
    std::sort(rates.begin(), rates.end());
    std::printf("%s: %d messages, median of %d runs\n", argv[1], messages, runs);
    std::printf("%-40s %12s %12s %8s\n", "measure", "tessaly", "other tool", "ratio");
    std::printf("%-40s %12.0f %12s %8s\n", "messages rendered to HTML per second", rates[rates.size() / 2], "n/a", "n/a");
    return 0;
}
