#include "app/FileSearch.h"

#include <QDir>
#include <QFileInfo>
#include <filesystem>

namespace tessaly::app {

namespace fs = std::filesystem;

TFileFilter::TFileFilter(const QString& extensions)
{
    for (const QString& extension : extensions.split(QLatin1Char(';'), Qt::SkipEmptyParts))
        m_extensions << extension.trimmed().toLower();
}

bool TFileFilter::Accept(const QString& fileName) const
{
    const QString name = fileName.left(260);
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    return dot > 0 && m_extensions.contains(name.mid(dot + 1).toLower());
}

TVirtualFileSearchThread::TVirtualFileSearchThread(TVirtualFileSearch& search, QStringList roots, QStringList masks)
    : m_search(search), m_roots(std::move(roots)), m_masks(std::move(masks))
{
    setObjectName(QStringLiteral("FileSearch"));
}

void TVirtualFileSearchThread::run()
{
    m_sinceShown.start();
    for (const QString& root : m_roots) {
        if (m_stop)
            break;
        if (QFileInfo(root).isDir())
            Walk(QFileInfo(root).canonicalFilePath());
    }
    QMutexLocker locker(&m_lock);
    m_found << m_own;
    m_own.clear();
}

// At most one progress message per 100 ms, and only for a new folder.
void TVirtualFileSearchThread::Visited(const QString& folder)
{
    ++m_search.m_visited;
    if (folder != m_lastShown && m_sinceShown.elapsed() > 100) {
        m_lastShown = folder;
        m_sinceShown.restart();
        QMetaObject::invokeMethod(&m_search, [search = &m_search, folder] { emit search->Progress(folder); },
            Qt::QueuedConnection);
    }
}

// Depth first. Folders are walked by their real path, once: a link back up
// the tree leads nowhere new. Folders that cannot be read are skipped.
void TVirtualFileSearchThread::Walk(const QString& folder)
{
    if (m_stop || m_walked.contains(folder))
        return;
    m_walked.insert(folder);
    std::error_code error;
    fs::directory_iterator it(folder.toStdString(), fs::directory_options::skip_permission_denied, error);
    if (error)
        return;
    std::vector<QString> folders;
    for (const fs::directory_iterator end; it != end && !m_stop; it.increment(error)) {
        if (error)
            break;
        const fs::directory_entry& entry = *it;
        std::error_code statusError;
        if (entry.is_directory(statusError)) {
            QString path = QString::fromStdString(entry.path().string());
            if (entry.is_symlink(statusError))
                path = QFileInfo(path).canonicalFilePath();
            if (!path.isEmpty())
                folders.push_back(path);
            continue;
        }
        const QString name = QString::fromStdString(entry.path().filename().string());
        Visited(folder);
        if (m_search.Filter.Accept(name))
            m_own << QString::fromStdString(entry.path().string());
    }
    for (const QString& sub : folders)
        Walk(sub);
}

TVirtualFileSearch::TVirtualFileSearch(QObject* parent) : QObject(parent)
{
    m_poll.setInterval(100);
    connect(&m_poll, &QTimer::timeout, this, &TVirtualFileSearch::Poll);
}

TVirtualFileSearch::~TVirtualFileSearch()
{
    Stop();
}

void TVirtualFileSearch::Start()
{
    Stop();
    m_finished = false;
    m_visited = 0;
    m_thread = new TVirtualFileSearchThread(*this, Roots, Masks);
    m_thread->start();
    m_poll.start();
}

void TVirtualFileSearch::Poll()
{
    if (!m_thread)
        return;
    QStringList found;
    const bool done = m_thread->isFinished();
    {
        QMutexLocker locker(&m_thread->Lock());
        found = std::exchange(m_thread->Found(), {});
    }
    if (!found.isEmpty())
        emit Found(found);
    if (done) {
        m_poll.stop();
        m_thread->wait();
        delete std::exchange(m_thread, nullptr);
        m_finished = true;
        emit Complete();
    }
}

void TVirtualFileSearch::Stop()
{
    m_poll.stop();
    if (!m_thread)
        return;
    m_thread->Terminate();
    for (int step = 0; step < 50 && !m_thread->wait(100); ++step) {
    }
    if (!m_thread->isFinished()) {
        m_thread->terminate();
        m_thread->wait();
    }
    delete std::exchange(m_thread, nullptr);
    m_finished = true;
}

} // namespace tessaly::app
