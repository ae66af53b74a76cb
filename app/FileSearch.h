#pragma once

// The search for data files below chosen folders, on a thread of its own.

#include <QElapsedTimer>
#include <QMutex>
#include <QObject>
#include <QSet>
#include <QStringList>
#include <QThread>
#include <QTimer>
#include <atomic>

namespace tessaly::app {

// Accepts file names by extension ("pst;ost"), without regard to case.
class TFileFilter {
public:
    explicit TFileFilter(const QString& extensions);
    bool Accept(const QString& fileName) const;

private:
    QStringList m_extensions;
};

class TVirtualFileSearch;

class TVirtualFileSearchThread : public QThread {
public:
    TVirtualFileSearchThread(TVirtualFileSearch& search, QStringList roots, QStringList masks);
    void Terminate() { m_stop = true; }
    bool Stopping() const { return m_stop; }
    QMutex& Lock() { return m_lock; }
    // What the search found; touched under Lock().
    QStringList& Found() { return m_found; }

protected:
    void run() override;

private:
    void Walk(const QString& folder);
    void Visited(const QString& folder);

    TVirtualFileSearch& m_search;
    QStringList m_roots;
    QStringList m_masks;
    std::atomic<bool> m_stop {false};
    QMutex m_lock;
    QStringList m_found;
    QStringList m_own;
    QSet<QString> m_walked;
    QString m_lastShown;
    QElapsedTimer m_sinceShown;
};

// Runs one search at a time and reports from the main thread: progress
// (at most about ten times a second), the files found, the end.
class TVirtualFileSearch : public QObject {
    Q_OBJECT
public:
    explicit TVirtualFileSearch(QObject* parent = nullptr);
    ~TVirtualFileSearch() override;

    QStringList Roots;
    QStringList Masks {QStringLiteral("*")};
    TFileFilter Filter {QStringLiteral("pst;ost")};

    void Start();
    // Ends a search: waits in steps of 100 ms, at most 5 s, then ends the
    // thread by force (its results are dropped then).
    void Stop();
    bool Running() const { return m_thread != nullptr; }
    bool Finished() const { return m_finished; }
    int FilesVisited() const { return m_visited; }

signals:
    void Progress(const QString& folder);
    void Found(const QStringList& files);
    void Complete();

private:
    friend class TVirtualFileSearchThread;
    void Poll();

    TVirtualFileSearchThread* m_thread = nullptr;
    QTimer m_poll;
    bool m_finished = true;
    std::atomic<int> m_visited {0};
};

} // namespace tessaly::app
