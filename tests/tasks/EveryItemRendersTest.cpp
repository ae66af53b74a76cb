// Every sample message file and every item of every sample data file shows
// something: the rendering the preview and "tessaly-inspect --html" give is
// never the empty page.

#include "TestUtil.h"
#include "mail/FileMailMsg.h"
#include "mail/MailMsgHTML.h"
#include "pst/PSTFile.h"
#include "pst/PSTMessage.h"
#include "tasks/MailProperties.h"

#include <QDir>
#include <QDirIterator>
#include <QRegularExpression>
#include <gtest/gtest.h>

using namespace tessaly;

namespace {

// The text a reader sees, and whether a picture shows.
bool ShowsSomething(const QString& html)
{
    static const QRegularExpression Hidden(QStringLiteral("<(style|head|script)[^>]*>.*?</\\1>"),
        QRegularExpression::DotMatchesEverythingOption | QRegularExpression::CaseInsensitiveOption);
    static const QRegularExpression Tags(QStringLiteral("<[^>]*>"));
    QString text = html;
    text.remove(Hidden);
    const bool picture = text.contains(QStringLiteral("<img"), Qt::CaseInsensitive);
    text.remove(Tags);
    text.replace(QStringLiteral("&nbsp;"), QStringLiteral(" "));
    return picture || !text.trimmed().isEmpty();
}

QString Rendering(const mail::IMailMessage& message)
{
    tasks::TMailProperties options;
    options.SetCmdHTMLEmbedImages(true);
    const mail::TMessageHTMLTask task(message);
    return mail::TMailMsgHTML::Render(message, options.HTMLOptions(), task);
}

void RenderFolder(pst::TPSTFolder* folder, const QString& path, int& items, QStringList& empty)
{
    for (int i = 0; i < folder->ItemCount(); ++i) {
        const auto message = pst::adapter::WrapItem(folder->GetItem(i), false);
        if (!message)
            continue;
        ++items;
        if (!ShowsSomething(Rendering(*message)))
            empty << QStringLiteral("%1:%2").arg(path).arg(i);
    }
    for (int i = 0; i < folder->FolderCount(); ++i)
        RenderFolder(folder->GetFolder(i), path + QLatin1Char('/') + folder->GetFolder(i)->Name(), items, empty);
}

} // namespace

TEST(EveryItemRenders, SampleMessageFiles)
{
    int files = 0;
    QStringList empty;
    for (QDirIterator it(test::TestData(QString()), {QStringLiteral("*.eml"), QStringLiteral("*.msg"), QStringLiteral("*.emlx"),
                                                       QStringLiteral("*.vcf")},
             QDir::Files, QDirIterator::Subdirectories);
         it.hasNext();) {
        const QString file = it.next();
        if (file.contains(QStringLiteral("/golden/")) || file.contains(QStringLiteral("/damaged")))
            continue;
        const auto message = mail::TFileMailMsgRequest(file).Message();
        if (!message)
            continue; // files the readers refuse are the damaged-file tests' business
        ++files;
        if (!ShowsSomething(Rendering(*message)))
            empty << QDir(test::TestData(QString())).relativeFilePath(file);
    }
    EXPECT_GE(files, 50);
    EXPECT_TRUE(empty.isEmpty()) << empty.join(QLatin1Char('\n')).toStdString();
}

TEST(EveryItemRenders, EveryItemOfTheSampleDataFiles)
{
    const QDir samples(test::TestData(QStringLiteral("pst")));
    for (const QString& name : samples.entryList(QDir::Files)) {
        SCOPED_TRACE(name.toStdString());
        pst::TPSTFile file(samples.filePath(name));
        ASSERT_TRUE(file.RootFolder());
        int items = 0;
        QStringList empty;
        RenderFolder(file.RootFolder(), QString(), items, empty);
        EXPECT_GT(items, 0);
        EXPECT_TRUE(empty.isEmpty()) << items << " items; empty: " << empty.join(QStringLiteral(", ")).toStdString();
    }
}
