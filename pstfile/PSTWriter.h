#pragma once

// Writes a new Unicode personal folders file: the message store with its
// special folders, a folder tree, and messages with recipients, attachments
// (by value or attached messages) and named properties. Messages are written
// as they are added; folders, tables, the store and the maps at Finish.

#include "pstfile/NdbWriter.h"

#include <QDateTime>
#include <QHash>
#include <QUuid>
#include <functional>
#include <map>
#include <memory>

namespace tessaly::pstfile {

struct TNamedProperty {
    QUuid set;
    uint32_t lid = 0; // a numbered property, or
    QString name;     // a named one
    uint16_t type = 0;
    QByteArray value;
};

// The streams of a name-to-id map, as data files ([MS-PST] 2.4.7) and .msg
// files ([MS-OXMSG] 2.2.3) both store it: the GUIDs after the two
// predefined sets, an entry per property, the names of string-named ones,
// and the entries again in hash buckets, with the hash in place of the
// number. Properties are given with their ids (0x8000 and up); stringHash
// hashes a name's UTF-16LE bytes.
struct TNameIdStreams {
    QByteArray guids, entries, strings;
    std::vector<QByteArray> buckets;
};
TNameIdStreams BuildNameIdStreams(const std::vector<std::pair<uint16_t, TNamedProperty>>& properties,
    uint32_t bucketCount, const std::function<uint32_t(const QByteArray&)>& stringHash);

class TPSTPropertyBag {
public:
    void Set(uint32_t tag, QByteArray value);
    // Empty texts and invalid times are not written at all.
    void SetString(uint16_t id, const QString& text);
    void SetLong(uint16_t id, int32_t value);
    void SetBool(uint16_t id, bool value);
    void SetTime(uint16_t id, const QDateTime& time);
    void SetBinary(uint16_t id, const QByteArray& data);
    void SetNamed(const QUuid& set, uint32_t lid, uint16_t type, QByteArray value);
    void SetNamedString(const QUuid& set, uint32_t lid, const QString& text);
    void SetNamedTime(const QUuid& set, uint32_t lid, const QDateTime& time);
    QByteArray Value(uint16_t id) const;
    // A string value as text; empty when it is not set.
    QString String(uint16_t id) const;
    const std::vector<TProp>& Props() const { return m_props; }
    const std::vector<TNamedProperty>& Named() const { return m_named; }

private:
    std::vector<TProp> m_props;
    std::vector<TNamedProperty> m_named;
};

class TPSTRecipient : public TPSTPropertyBag {};

struct TPSTMessage;

class TPSTAttachment : public TPSTPropertyBag {
public:
    QByteArray data;
    std::shared_ptr<TPSTMessage> embedded; // an attached message instead of data
};

struct TPSTMessage : public TPSTPropertyBag {
    std::vector<TPSTRecipient> recipients;
    std::vector<TPSTAttachment> attachments;

    // Sender and sent-representing fields; the SMTP address only when known.
    void SetSender(const QString& name, const QString& addrType, const QString& email, const QString& smtp = {});
    // kind: 1 To, 2 Cc, 3 Bcc, or any other value.
    TPSTRecipient& AddRecipient(int kind, const QString& name, const QString& addrType, const QString& email,
        const QString& smtp = {});
    // An attachment by value; an empty name leaves the name unset.
    TPSTAttachment& AddAttachment(const QString& name, const QByteArray& data, const QString& mimeType = {});
    TPSTAttachment& AddEmbedded(std::shared_ptr<TPSTMessage> message);
    // The RTF body is stored compressed as [MS-OXRTFCP] describes.
    void SetBodies(const QString& text, const QByteArray& htmlUtf8, const QByteArray& rtf);
};

// [MS-OXRTFCP]: a valid compressed RTF stream that holds the text as
// literals, and its reader for tests.
QByteArray CompressRtf(const QByteArray& rtf);

enum TPSTSpecialFolder { psfTopOfStore, psfInbox, psfOutbox, psfSentItems, psfDeletedItems, psfDrafts };

// How messages get their node ids.
enum TPSTMessageOrder {
    // At Finish, folder by folder in reverse tree order: libpff, which looks
    // each parent up among the items already read, opens such files fastest.
    pmoTree,
    // In the order messages are added, as in a mailbox that received its mail
    // over time: consecutive messages of different folders interleave.
    pmoArrival,
};

struct TPSTWriterOptions {
    TPSTMessageOrder order = pmoTree;
    uint8_t cryptMethod = CryptNone; // CryptNone, CryptPermute or CryptCyclic
};

class TPSTWriter {
public:
    // Throws core::ETessalyError when the file cannot be created. A writer
    // destroyed before Finish removes its file.
    TPSTWriter(const QString& fileName, const QString& storeName, const QUuid& storeId = QUuid::createUuid(),
        const TPSTWriterOptions& options = {});
    ~TPSTWriter();

    static constexpr uint32_t RootFolder = nidRootFolder;
    uint32_t SpecialFolder(TPSTSpecialFolder folder) const;
    // A folder below parent; its class says what it holds ("IPF.Note",
    // "IPF.Contact", "IPF.Appointment", ...); an empty class is not written.
    uint32_t AddFolder(uint32_t parent, const QString& name, const QString& containerClass = QStringLiteral("IPF.Note"));
    void RenameFolder(uint32_t folder, const QString& name);
    // The sub-folder of that name (compared without regard to case), or 0.
    uint32_t FindFolder(uint32_t parent, const QString& name) const;
    // The message is written at once; its node id is given now or at Finish,
    // as the order of the options says.
    void AddMessage(uint32_t folder, const TPSTMessage& message);
    void Finish();
    qint64 Size() const { return m_ndb.Size(); }
    int MessageCount() const { return m_messageCount; }

private:
    struct TFolder {
        uint32_t parent = 0;
        QString name, containerClass;
        std::vector<uint32_t> children;
        std::vector<uint32_t> rowIds;   // the messages' node ids
        std::vector<QByteArray> rows;   // contents table cells, packed
        std::vector<std::pair<uint64_t, uint64_t>> blocks; // data and subnode blocks of messages not yet numbered
    };
    using TSubnodes = std::vector<TSubnode>;
    struct TNodeData {
        uint64_t bidData, bidSub;
        uint32_t size;
    };
    TNodeData WriteMessage(const TPSTMessage& message, std::vector<TProp> extra);
    TSubnodeSink Sink(TSubnodes& subnodes);
    std::vector<TProp> Resolve(const TPSTPropertyBag& bag);
    uint16_t NamedId(const TNamedProperty& named);
    QByteArray EntryId(uint32_t nid) const;
    static TPSTPropertyBag FolderCells(const TFolder& folder);
    void NumberMessages();
    void WriteFolder(uint32_t nid, const TFolder& folder);
    void WriteStore();
    void WriteNameMap();
    void WriteTemplates();

    TPSTWriterOptions m_options;
    TNdbWriter m_ndb;
    QString m_storeName;
    QUuid m_storeId;
    std::map<uint32_t, TFolder> m_folders;
    uint32_t m_nextFolder = 0x420;
    // Messages are numbered above every folder, as in files Outlook writes:
    // readers meet a folder in the node tree before its messages.
    uint32_t m_nextMessage = 0x100000;
    int m_messageCount = 0;
    uint32_t m_nextLtp = 0x100;
    QHash<QString, uint16_t> m_namedIds; // set and lid or name -> id
    std::vector<std::pair<uint16_t, TNamedProperty>> m_namedList;
    uint16_t m_nextNamed = 0xC000;
    bool m_finished = false;
};

} // namespace tessaly::pstfile
