// A page tessaly-inspect --html writes, opened as a browser opens a saved
// page (JavaScript on), reaches no other host; the same message unsanitized
// does, which shows the listener would have seen it.

#include "TestUtil.h"
#include "integration/RunUtil.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QSet>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QWebEnginePage>
#include <QWebEngineProfile>
#include <QWebEngineSettings>
#include <gtest/gtest.h>
#include <memory>

namespace {

void WaitFor(const std::function<bool()>& done, int ms)
{
    QElapsedTimer timer;
    timer.start();
    while (!done() && timer.elapsed() < ms)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
}

// Counts connections on a local port and notes the path of each request,
// answering every one with 404.
class TListener {
public:
    TListener()
    {
        EXPECT_TRUE(m_server.listen(QHostAddress::LocalHost));
        QObject::connect(&m_server, &QTcpServer::newConnection, [this] {
            while (QTcpSocket* socket = m_server.nextPendingConnection()) {
                ++Connections;
                auto request = std::make_shared<QByteArray>();
                QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket, request] {
                    *request += socket->readAll();
                    if (!request->contains("\r\n\r\n"))
                        return;
                    Paths << QString::fromLatin1(request->split(' ').value(1));
                    request->clear();
                    socket->write("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
                    socket->disconnectFromHost();
                });
                QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
    }

    QString Base() const { return QStringLiteral("http://127.0.0.1:%1").arg(m_server.serverPort()); }

    int Connections = 0;
    QStringList Paths;

private:
    QTcpServer m_server;
};

// The message's HTML: every way a page can run something or reach out,
// all aimed at the listener, and two pictures of its own.
QString HostileHtml(const QString& base)
{
    return QString::fromUtf8(R"html(<html><head>
<base href="%1/base/">
<meta http-equiv="refresh" content="1;url=%1/refresh">
<link rel="stylesheet" href="%1/link-stylesheet.css">
<link rel="preconnect" href="%1">
<link rel="dns-prefetch" href="//127.0.0.1:%2">
<link rel="prefetch" href="%1/link-prefetch">
<link rel="preload" as="image" href="%1/link-preload.png">
<link rel="icon" href="%1/link-icon.ico">
<style>@import url(%1/css-import.css);
body { background: url(%1/css-url.png) }
@font-face { font-family: f; src: url(%1/css-font.woff) }
p { font-family: f }</style>
<script>new Image().src = '%1/script-inline'; fetch('%1/script-fetch');</script>
<script src="%1/script-src.js"></script>
</head><body onload="fetch('%1/onload')">
<p>Visible body</p>
<img src="%1/img.png">
<img src="missing.png" onerror="fetch('%1/onerror')">
<img srcset="%1/srcset.png 2x">
<picture><source srcset="%1/picture-source.png"><img src="picture.png"></picture>
<iframe src="%1/iframe"></iframe>
<object data="%1/object"></object>
<embed src="%1/embed">
<video poster="%1/video-poster.png" src="%1/video.mp4" autoplay></video>
<audio src="%1/audio.mp3" autoplay></audio>
<div style="background-image: url('%1/style-attribute.png'); width: 10px; height: 10px"></div>
<table background="%1/table-background.png"><tr><td>cell</td></tr></table>
<input type="image" src="%1/input-image.png">
<form action="%1/form-action" method="get"><input name="a" value="b"></form>
<script>document.forms[0].submit();</script>
<a href="javascript:fetch('%1/javascript-link')" id="js">run</a>
<script>document.getElementById('js').click();</script>
<svg><image href="%1/svg-image.png" width="5" height="5"/></svg>
<a href="%1/clicked-only">a link, fetched only when clicked</a>
<img id="cidpic" src="cid:pic1@tessaly.test">
<img id="beside" src="beside.png">
</body></html>)html")
        .arg(base, base.section(QLatin1Char(':'), -1));
}

QByteArray Png()
{
    QImage image(4, 3, QImage::Format_RGB32);
    image.fill(Qt::red);
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return png;
}

QByteArray Eml(const QString& html)
{
    return QByteArrayLiteral("From: Mallory <mallory@example.org>\r\nTo: Ann <ann@example.org>\r\n"
                             "Subject: A hostile page\r\nDate: Mon, 4 Mar 2024 10:00:00 +0000\r\nMIME-Version: 1.0\r\n"
                             "Content-Type: multipart/related; boundary=\"b1\"\r\n\r\n"
                             "--b1\r\nContent-Type: text/html; charset=utf-8\r\nContent-Transfer-Encoding: 8bit\r\n\r\n")
        + html.toUtf8()
        + QByteArrayLiteral("\r\n--b1\r\nContent-Type: image/png; name=\"pic.png\"\r\nContent-Transfer-Encoding: base64\r\n"
                            "Content-ID: <pic1@tessaly.test>\r\nContent-Disposition: inline; filename=\"pic.png\"\r\n\r\n")
        + Png().toBase64() + QByteArrayLiteral("\r\n--b1--\r\n");
}

bool WriteFile(const QString& path, const QByteArray& data)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
}

struct TOpened {
    bool loaded = false;
    QVariantList probe; // widths of the two own pictures, whether the body text shows
};

// Opens a saved page as a browser would: scripts on, local pages allowed to
// load from the network, nothing kept on disk. Waits for the load and a
// little longer for anything late.
TOpened OpenPage(const QString& file)
{
    TOpened opened;
    QWebEngineProfile profile; // off the record
    profile.settings()->setAttribute(QWebEngineSettings::JavascriptEnabled, true);
    profile.settings()->setAttribute(QWebEngineSettings::LocalContentCanAccessRemoteUrls, true);
    QWebEnginePage page(&profile);
    QObject::connect(&page, &QWebEnginePage::loadFinished, [&](bool) { opened.loaded = true; });
    page.load(QUrl::fromLocalFile(file));
    WaitFor([&] { return opened.loaded; }, 30000);
    WaitFor([] { return false; }, 1500);
    bool probed = false;
    page.runJavaScript(QStringLiteral(
                           "(function() { const w = id => document.getElementById(id) ? document.getElementById(id).naturalWidth : -1;"
                           " return [w('cidpic'), w('beside'), document.body.innerText.indexOf('Visible body') >= 0]; })()"),
        [&](const QVariant& result) {
            opened.probe = result.toList();
            probed = true;
        });
    WaitFor([&] { return probed; }, 10000);
    return opened;
}

struct TPage {
    QTemporaryDir dir;
    QString eml, html;
};

// The message as a file, the picture beside where its page goes.
void WriteMessage(TPage& page, const QString& base)
{
    ASSERT_TRUE(page.dir.isValid());
    page.eml = page.dir.filePath(QStringLiteral("hostile.eml"));
    page.html = page.dir.filePath(QStringLiteral("hostile.html"));
    ASSERT_TRUE(WriteFile(page.eml, Eml(HostileHtml(base))));
    ASSERT_TRUE(WriteFile(page.dir.filePath(QStringLiteral("beside.png")), Png()));
}

TRun Inspect(const QStringList& args)
{
    return RunProcess(QStringLiteral(TESSALY_BINARY_DIR "/app/tessaly-inspect"), args);
}

} // namespace

TEST(InspectHtml, SavedPageReachesNoOtherHost)
{
    TListener listener;
    TPage page;
    WriteMessage(page, listener.Base());
    const TRun run = Inspect({QStringLiteral("--html"), page.eml});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    ASSERT_TRUE(WriteFile(page.html, run.out.toUtf8()));
    // Of the listener's address only the plain link stays.
    EXPECT_EQ(run.out.count(QStringLiteral("127.0.0.1")), 1) << run.out.toStdString();

    const TOpened opened = OpenPage(page.html);
    EXPECT_TRUE(opened.loaded);
    EXPECT_EQ(listener.Connections, 0) << listener.Paths.join(QLatin1Char(' ')).toStdString();
    // The message's own picture (a data URL now) and the one beside the
    // page show; so does the text.
    ASSERT_EQ(opened.probe.size(), 3);
    EXPECT_GT(opened.probe[0].toInt(), 0);
    EXPECT_GT(opened.probe[1].toInt(), 0);
    EXPECT_TRUE(opened.probe[2].toBool());
}

TEST(InspectHtml, WithoutTheSanitizerThePageReachesOutAndRemotePicturesAreOnlyPictures)
{
    TListener listener;
    TPage page;
    WriteMessage(page, listener.Base());

    // The message's HTML as it came: the listener hears of it.
    const QString raw = page.dir.filePath(QStringLiteral("raw.html"));
    ASSERT_TRUE(WriteFile(raw, HostileHtml(listener.Base()).toUtf8()));
    EXPECT_TRUE(OpenPage(raw).loaded);
    EXPECT_GT(listener.Connections, 0);
    for (const char* path : {"/img.png", "/link-stylesheet.css", "/script-src.js", "/iframe"})
        EXPECT_TRUE(listener.Paths.contains(QLatin1String(path))) << path << ": " << listener.Paths.join(QLatin1Char(' ')).toStdString();

    // With remote pictures, the pictures of <img> elements load, and
    // nothing else.
    listener.Paths.clear();
    const TRun run = Inspect({QStringLiteral("--html"), QStringLiteral("--remote-pictures"), page.eml});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    ASSERT_TRUE(WriteFile(page.html, run.out.toUtf8()));
    EXPECT_TRUE(OpenPage(page.html).loaded);
    EXPECT_TRUE(listener.Paths.contains(QStringLiteral("/img.png"))) << listener.Paths.join(QLatin1Char(' ')).toStdString();
    const QSet<QString> pictures = {QStringLiteral("/img.png"), QStringLiteral("/srcset.png")};
    for (const QString& path : listener.Paths)
        EXPECT_TRUE(pictures.contains(path)) << path.toStdString();
}

TEST(InspectHtml, RemotePicturesGoWithHtmlOnly)
{
    TPage page;
    WriteMessage(page, QStringLiteral("http://127.0.0.1:9"));
    EXPECT_EQ(Inspect({QStringLiteral("--remote-pictures"), page.eml}).exitCode, 2);
    EXPECT_EQ(Inspect({QStringLiteral("--html"), QStringLiteral("--json"), page.eml}).exitCode, 2);
    EXPECT_EQ(Inspect({QStringLiteral("--html")}).exitCode, 2);
    const TRun help = Inspect({QStringLiteral("--help")});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_TRUE(help.out.contains(QStringLiteral("--html [--remote-pictures] FILE"))) << help.out.toStdString();
}

// The pages "-format html" and "-format xhtml" write: a page per message
// that reaches no other host when opened later (an XHTML page read as HTML
// and, named .xhtml, as XML); with -RemotePictures the pictures of <img>
// elements load, and nothing else.
TEST(ExportHtml, ExportedPageReachesNoOtherHostUnlessPicturesAreKept)
{
    TListener listener;
    TPage page;
    WriteMessage(page, listener.Base());
    for (const QString format : {QStringLiteral("html"), QStringLiteral("xhtml")}) {
        SCOPED_TRACE(format.toStdString());
        const auto exported = [&](const QStringList& more) {
            QTemporaryDir out;
            const TRun run = RunProcess(QStringLiteral(TESSALY_BINARY_DIR "/app/tessaly"),
                QStringList{page.eml, QStringLiteral("-dest"), out.path(), QStringLiteral("-format"), format} + more);
            EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
            const QStringList pages = QDir(out.path()).entryList({QStringLiteral("*.html")}, QDir::Files);
            EXPECT_EQ(pages.size(), 1);
            QFile file(QDir(out.path()).filePath(pages.value(0)));
            EXPECT_TRUE(file.open(QIODevice::ReadOnly));
            return file.readAll();
        };
        const QByteArray closed = exported({});
        QStringList names = {page.html};
        if (format == QLatin1String("xhtml"))
            names << page.dir.filePath(QStringLiteral("hostile.xhtml"));
        for (const QString& name : names) {
            SCOPED_TRACE(name.toStdString());
            listener.Paths.clear();
            ASSERT_TRUE(WriteFile(name, closed));
            const TOpened opened = OpenPage(name);
            EXPECT_TRUE(opened.loaded);
            EXPECT_EQ(listener.Connections, 0) << listener.Paths.join(QLatin1Char(' ')).toStdString();
            ASSERT_EQ(opened.probe.size(), 3);
            EXPECT_GT(opened.probe[0].toInt(), 0); // the message's own picture, inside the page
            EXPECT_TRUE(opened.probe[2].toBool());
        }

        listener.Paths.clear();
        ASSERT_TRUE(WriteFile(page.html, exported({QStringLiteral("-RemotePictures")})));
        EXPECT_TRUE(OpenPage(page.html).loaded);
        EXPECT_TRUE(listener.Paths.contains(QStringLiteral("/img.png"))) << listener.Paths.join(QLatin1Char(' ')).toStdString();
        const QSet<QString> pictures = {QStringLiteral("/img.png"), QStringLiteral("/srcset.png")};
        for (const QString& path : listener.Paths)
            EXPECT_TRUE(pictures.contains(path)) << path.toStdString();
        listener.Connections = 0;
    }
}
