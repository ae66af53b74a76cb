#pragma once

// The ticked messages of the open files. The message list announces every
// check change on "file.checked"; this registry keeps them and answers
// "file.check.request" with the ticked entries.

#include <QList>
#include <QMetaType>
#include <QObject>
#include <QSet>
#include <QString>

namespace tessaly::pst {
class TPSTFile;
}

namespace tessaly::app {

enum TCheckEntryKind { ckFile = 1, ckFolder = 2, ckMessage = 3 };

struct TFileCheckNotice {
    int Kind = ckMessage;
    QString FileName; // the file the message belongs to
    int UID = 0;      // the message's identifier within the file
    bool Checked = false;
    const void* Folder = nullptr; // the folder object of the list, and the row in it
    int Row = -1;
};

using TFileCheckList = QList<TFileCheckNotice>;

// "pst.file.checked": a data file ticked (or unticked) as a whole.
struct TPSTFileCheck {
    const pst::TPSTFile* File = nullptr;
    bool Checked = false;
};

class TCheckedEntries : public QObject {
public:
    TCheckedEntries();
    ~TCheckedEntries() override;
    TFileCheckList Entries() const;
    int Count() const { return int(m_entries.size()); }
    void Clear() { m_entries.clear(); }
    // Forgets the entries of a file that left the tree.
    void ForgetFile(const QString& fileName);

private:
    void Apply(const TFileCheckNotice& notice);
    QList<TFileCheckNotice> m_entries;
};

} // namespace tessaly::app

Q_DECLARE_METATYPE(tessaly::app::TFileCheckNotice)
Q_DECLARE_METATYPE(tessaly::app::TFileCheckList)
Q_DECLARE_METATYPE(tessaly::app::TPSTFileCheck)
