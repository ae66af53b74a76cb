#pragma once

#include "pst/PSTFolder.h"

#include <array>

namespace tessaly::pst {

class TPSTFile;

class TPSTMessageStore : public TPSTItem {
public:
    TPSTMessageStore(TPSTFile& file, pstfile::TProperties props);

    // The special folder the identifier stands for; fkOther for any other.
    TPSTFolderKind GetFolderKind(uint32_t id) const;
    uint32_t FolderID(TPSTFolderKind kind) const { return m_ids[size_t(kind)]; }
    // The file's root folder, or null when it cannot be read.
    std::unique_ptr<TPSTRootFolder> Root();
    TPSTFile& File() const { return m_file; }

private:
    // The descriptor in an entry identifier held in a binary property.
    uint32_t EntryDescriptor(uint32_t tag) const;

    TPSTFile& m_file;
    std::array<uint32_t, 6> m_ids {};
};

// Why a data file could not be opened, from what the file system and the
// reader found; oeNone for a file that opened.
enum TPSTOpenError {
    oeNone,
    oeNotFound,
    oeFolder,
    oeNoPermission,
    oeEmpty,
    oeNotDataFile,
    oeDamagedHeader,
    oeCannotOpen,
    oeNoFolders,
};

// The sentence that tells the user the reason; empty for oeNone.
QString OpenErrorText(TPSTOpenError error);
// What the file system says before the file is read: missing, a folder, not
// readable, empty; oeNone when nothing stands against reading it.
TPSTOpenError CheckFileAccess(const QString& fileName);

// One opened PST or OST file, read only. A file that cannot be opened gives
// an object without root folder, and says why in OpenError; the reason is
// also written to the log (category "tessaly.pst.open").
class TPSTFile {
public:
    explicit TPSTFile(const QString& fileName);
    ~TPSTFile();
    TPSTFile(const TPSTFile&) = delete;
    TPSTFile& operator=(const TPSTFile&) = delete;

    const QString& FileName() const { return m_fileName; }
    // The file name without folder and extension.
    const QString& FileCaption() const { return m_caption; }
    // The caption shown for the file (made unique among the open files).
    const QString& Caption() const { return m_displayCaption; }
    void SetCaption(const QString& caption) { m_displayCaption = caption; }

    bool IsOpen() const { return m_context && m_context->File; }
    TPSTOpenError OpenError() const { return m_openError; }
    bool IsOST() const { return m_isOST; }
    bool Is64Bit() const { return m_is64; }
    TPSTMessageStore* MessageStore();
    TPSTRootFolder* RootFolder() const { return m_root.get(); }
    // Reads the whole folder tree.
    void ExpandAll();
    // Folders were left out of the tree: nested too deep or in a loop.
    bool FoldersLeftOut() const { return m_context && m_context->FoldersLeftOut; }

    int AsciiCodePage() const;
    bool SetAsciiCodePage(int codePage);

    // The reader of the file; null when it could not be opened.
    pstfile::TPstFile* Reader() const { return m_context ? m_context->File.get() : nullptr; }
    const TPSTFileContextPtr& Context() const { return m_context; }
    std::recursive_mutex& Lock() { return m_context->Lock; }

private:
    QString m_fileName;
    QString m_caption;
    QString m_displayCaption;
    TPSTFileContextPtr m_context;
    bool m_isOST = false;
    bool m_is64 = false;
    TPSTOpenError m_openError = oeNone;
    std::unique_ptr<TPSTMessageStore> m_store;
    std::unique_ptr<TPSTRootFolder> m_root;
};

} // namespace tessaly::pst
