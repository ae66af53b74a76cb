#pragma once

// The format-independent message model. Every mail source (an item of a
// data file, a .msg file, an .eml file) is offered through these interfaces
// and every consumer works through them alone. Interfaces are held by
// std::shared_ptr; whether an object offers another interface is asked with
// std::dynamic_pointer_cast.

#include "core/DateTime.h"

#include <QIODevice>
#include <QString>
#include <any>
#include <memory>

namespace tessaly::mail {

using core::TDateTime;

enum TMailAddressType { matSMTP, matEX, matEXResolved };
enum TMailRecipientType { mrtOriginator, mrtTo, mrtCC, mrtBCC, mrtUnknown };
enum TMailBodyType { mbtText, mbtHTML, mbtRTF };
enum TMailDateType { mdClientSubmit, mdDelivery, mdCreation, mdModification };

class IMailMessage;
class TMailStringList;

// Walks the indexes 0 to Count-1 of a list. Before the first MoveNext there
// is no current item; Reset goes back there. Keeps a list that is held by a
// shared_ptr alive, so walking a temporary list is safe.
template <class TList, class TItem>
class TMailListEnumerator {
public:
    TMailListEnumerator(std::shared_ptr<const TList> hold, const TList* list) : m_hold(std::move(hold)), m_list(list) {}
    std::shared_ptr<TItem> GetCurrent() const { return m_list->Item(m_index); }
    bool MoveNext()
    {
        if (m_index + 1 >= m_list->Count())
            return false;
        ++m_index;
        return true;
    }
    void Reset() { m_index = -1; }
    int Index() const { return m_index; }

private:
    std::shared_ptr<const TList> m_hold;
    const TList* m_list;
    int m_index = -1;
};

// Iterator over a list so that range-for works: for (auto r : *list), with
// list a named shared_ptr. (Not over *message->Recipients(mrtTo) directly:
// that shared_ptr dies before the loop starts.)
template <class TList, class TItem>
class TMailListIterator {
public:
    TMailListIterator(std::shared_ptr<const TList> hold, const TList* list, int index)
        : m_hold(std::move(hold)), m_list(list), m_index(index)
    {
    }
    std::shared_ptr<TItem> operator*() const { return m_list->Item(m_index); }
    TMailListIterator& operator++()
    {
        ++m_index;
        return *this;
    }
    bool operator==(const TMailListIterator& other) const { return m_list == other.m_list && m_index == other.m_index; }

private:
    std::shared_ptr<const TList> m_hold;
    const TList* m_list;
    int m_index;
};

// Shared shape of the three enumerable lists: Item() is the typed accessor
// (GetRecipient, GetAttach, GetMail) under one name.
template <class TSelf, class TItem>
class IMailList : public std::enable_shared_from_this<TSelf> {
public:
    using TEnumerator = TMailListEnumerator<TSelf, TItem>;
    using TIterator = TMailListIterator<TSelf, TItem>;

    virtual ~IMailList() = default;
    virtual int Count() const = 0;
    virtual std::shared_ptr<TItem> Item(int index) const = 0;

    TEnumerator GetEnumerator() const { return TEnumerator(Hold(), Self()); }
    TIterator begin() const { return TIterator(Hold(), Self(), 0); }
    TIterator end() const { return TIterator(nullptr, Self(), Count()); }

private:
    const TSelf* Self() const { return static_cast<const TSelf*>(this); }
    // Empty when the list is not owned by a shared_ptr (a list on the stack).
    std::shared_ptr<const TSelf> Hold() const { return Self()->weak_from_this().lock(); }
};

class IMailRecipient {
public:
    static constexpr const char* IID = "{4EC5C421-EC6E-4F46-953D-001B0A4A35C0}";
    virtual ~IMailRecipient() = default;
    virtual QString Caption() const = 0;
    virtual QString Name() const = 0;
    virtual QString EMail() const = 0;
    virtual TMailAddressType EMailType() const = 0;
};

class IMailRecipientList : public IMailList<IMailRecipientList, IMailRecipient> {
public:
    static constexpr const char* IID = "{656C9C7D-54FC-4920-84A0-58CCD233E969}";
    virtual std::shared_ptr<IMailRecipient> GetRecipient(int index) const = 0;
    std::shared_ptr<IMailRecipient> Item(int index) const override { return GetRecipient(index); }
};

class IMailRecipientList2 {
public:
    static constexpr const char* IID = "{14CF4B74-4412-4C28-9D53-CAE2499FA54A}";
    virtual ~IMailRecipientList2() = default;
    // The recipients' captions joined with ","; with MaxLen above 0 the list
    // is cut once the text reaches that length and ends in ",...".
    virtual QString Caption(int maxLen) const = 0;
};

class IMailAttach {
public:
    static constexpr const char* IID = "{25CFF370-B83A-419D-BB0E-3BCFEBF49B77}";
    virtual ~IMailAttach() = default;
    virtual QString FileName() const = 0;
    // The attachment's data, open for reading and positioned at its start;
    // null when the data cannot be had.
    virtual std::unique_ptr<QIODevice> Content() const = 0;
    virtual QString ContentID() const = 0;
    virtual QString ContentType() const = 0;
    virtual QString ContentDisposition() const = 0;
    virtual QString ContentLocation() const = 0;
    // The attached message when the attachment is itself a message.
    virtual std::shared_ptr<IMailMessage> AsMailMessage() const = 0;
};

class IMailAttach2 {
public:
    static constexpr const char* IID = "{3CC2F69A-1155-4829-B9FE-43DC83551552}";
    virtual ~IMailAttach2() = default;
    virtual qint32 Size() const = 0;
};

class IMailAttachList : public IMailList<IMailAttachList, IMailAttach> {
public:
    static constexpr const char* IID = "{70555423-BB0A-44F1-8682-65BFAB214961}";
    virtual std::shared_ptr<IMailAttach> GetAttach(int index) const = 0;
    std::shared_ptr<IMailAttach> Item(int index) const override { return GetAttach(index); }
};

class IMailMessage {
public:
    static constexpr const char* IID = "{A47F8DDF-785F-4C38-8ED0-C948B51F9E0E}";
    virtual ~IMailMessage() = default;
    virtual std::shared_ptr<IMailRecipient> Sender() const = 0;
    virtual QString SenderIP() const = 0;
    virtual QString Subject() const = 0;
    // Null when the message holds no recipients of that kind.
    virtual std::shared_ptr<IMailRecipientList> Recipients(TMailRecipientType kind) const = 0;
    // Empty when the message has no body of that kind.
    virtual QString Body(TMailBodyType kind) const = 0;
    // 0 when the source holds no such date.
    virtual TDateTime Date(TMailDateType kind) const = 0;
    // The internet header block, lines separated by line breaks.
    virtual QString Headers() const = 0;
    virtual std::shared_ptr<IMailAttachList> Attaches() const = 0;
};

class IMailMessage3 {
public:
    static constexpr const char* IID = "{B968115A-16EC-4C34-A84B-867D8EDF5F9C}";
    virtual ~IMailMessage3() = default;
    // Stable within the message's source; for an item of a data file its
    // numeric identifier in decimal.
    virtual QString UID() const = 0;
};

class IMailMessage4 {
public:
    static constexpr const char* IID = "{D091202C-B3C8-4AD9-B2B1-0A6473F144CF}";
    virtual ~IMailMessage4() = default;
    // The body's lines, owned by the message; null when there are none.
    virtual const TMailStringList* BodyStrings(TMailBodyType kind) const = 0;
};

// What a message does before it is previewed: read what it put off.
class IMailPreparePreview {
public:
    static constexpr const char* IID = "{14E32F80-303D-4C25-9CCA-AC3C81FC5D6C}";
    virtual ~IMailPreparePreview() = default;
    virtual void ResolveRecipients() const = 0;
};

class IMailMessageList : public IMailList<IMailMessageList, IMailMessage> {
public:
    virtual std::shared_ptr<IMailMessage> GetMail(int index) const = 0;
    std::shared_ptr<IMailMessage> Item(int index) const override { return GetMail(index); }
};

class IMailFolder {
public:
    static constexpr const char* IID = "{AF16744E-00D6-4652-9A79-B7CC9A232552}";
    virtual ~IMailFolder() = default;
    virtual std::shared_ptr<IMailFolder> GetFolder(int index) const = 0;
    // Number of subfolders.
    virtual int Count() const = 0;
    virtual QString Caption() const = 0;
    virtual std::shared_ptr<IMailMessageList> Messages() const = 0;
    // The folder's item data for the store layer, in the type that layer chose.
    virtual std::any MessageData() const = 0;
};

} // namespace tessaly::mail

#include <QMetaType>
// Mail sources travel on the message bus ("request.mail").
Q_DECLARE_METATYPE(std::shared_ptr<tessaly::mail::IMailFolder>)
