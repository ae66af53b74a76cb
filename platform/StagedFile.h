#pragma once

// An output file written under a temporary name in its destination folder
// and linked in under its final name when complete, never replacing a file
// that is there: a crash leaves whole files and temporaries, which the next
// run removes, and two runs writing into one folder lose nothing.

#include "platform/FileSystem.h"

#include <QFile>
#include <QString>
#include <functional>

namespace tessaly::platform {

class TStagedFile {
public:
    explicit TStagedFile(const QString& target, bool privateToUser = false);
    ~TStagedFile(); // a temporary not committed is removed
    TStagedFile(const TStagedFile&) = delete;
    TStagedFile& operator=(const TStagedFile&) = delete;

    bool IsOpen() const { return m_file.isOpen(); }
    QString ErrorString() const { return m_error; }
    // The temporary, open for writing.
    QFile& Device() { return m_file; }
    const QString& TemporaryPath() const { return m_temporary; }

    // Links the temporary in under `target`. When the name is taken, the
    // next name is asked of `nextName` (empty: give up, lrTaken); with
    // `replace` an existing file is replaced instead. On success `target`
    // holds the name the file got.
    TLinkResult Commit(QString& target, const std::function<QString(const QString&)>& nextName, bool replace = false);
    void Discard();

    // Names of temporaries: ".tessaly-XXXXXXXX.part".
    static bool IsTemporaryName(const QString& fileName);
    // Removes the temporaries in `folder` that no living writer holds; the
    // number removed.
    static int RemoveStale(const QString& folder);

private:
    QString m_temporary;
    QString m_error;
    QFile m_file;
    int m_handle = -1;
};

} // namespace tessaly::platform
