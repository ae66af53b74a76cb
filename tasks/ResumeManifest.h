#pragma once

// The record an export keeps beside its outputs so that a run killed in the
// middle can be finished by another (-resume): for every message, a line
// when its output is about to be linked in and one when it is complete.
// Lines are written as the run goes, each with one write call, so that
// whatever the process had written survives it being killed.

#include <QFile>
#include <QHash>
#include <QMutex>
#include <QString>

namespace tessaly::tasks {

struct TTaskEntry;

class TResumeManifest {
public:
    // The file's name in the destination folder.
    static QString FileName();
    // The key of a message: its place in the run and in its source.
    static QString Key(const TTaskEntry& entry);

    // Opens the record of the folder; with `resume` the lines of the run
    // before are read first and kept, otherwise it starts empty. While
    // another export into the folder holds the record, this run keeps none.
    bool Open(const QString& folder, bool resume, QString* error = nullptr);

    // Whether the message's output at `path` was completed by the run
    // before: recorded as complete, or about to be linked in and there (a
    // file is linked in whole, so one that is there is complete).
    bool Done(const QString& key, const QString& path) const;
    int DoneCount() const { return int(m_done.size()); }

    void Begin(const QString& key, const QString& path);
    void Finish(const QString& key, const QString& path);

private:
    void Append(const char* kind, const QString& key, const QString& path);
    QString Relative(const QString& path) const;

    QFile m_file;
    QMutex m_lock;
    QString m_folder;
    QString m_prefix; // the folder with a slash, to cut from output paths
    QHash<QString, QString> m_done;  // key -> output, relative to the folder
    QHash<QString, QString> m_begun;
};

} // namespace tessaly::tasks
