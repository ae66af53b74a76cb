#pragma once

// An output file written in its destination folder and linked in under its
// final name when complete, never replacing a file that is there: two runs
// writing into one folder lose nothing, and a crash leaves whole files. The
// file is written without a name where the system can (nothing is left by a
// crash), else under a temporary name, which the next run removes.

#include "platform/FileSystem.h"

#include <QFile>
#include <QString>
#include <functional>

namespace tessaly::platform {

class TStagedFile {
public:
    // With `named` the file is written under a temporary name in any case
    // (for writers that open it by its path).
    explicit TStagedFile(const QString& target, bool privateToUser = false, bool named = false);
    ~TStagedFile(); // a temporary not committed is removed
    TStagedFile(const TStagedFile&) = delete;
    TStagedFile& operator=(const TStagedFile&) = delete;

    bool IsOpen() const { return m_file.isOpen(); }
    QString ErrorString() const { return m_error; }
    // The file, open for writing.
    QFile& Device() { return m_file; }
    // Its temporary name; empty while it has none.
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
    bool m_unnamed = false;
};

} // namespace tessaly::platform
