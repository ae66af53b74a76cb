#pragma once

// Base classes for implementers of the message interfaces.

#include "mail/MailMsgIntf.h"

#include <vector>

namespace tessaly::mail {

// The caption of a recipient: the address alone when the name is empty or
// the same as the address, the name alone when there is no address, else
// "name <address>".
QString MailRecipientCaption(const QString& name, const QString& address);

// The captions of a list's recipients joined with "," (no comma after the
// last); empty for no list.
QString JoinCaptions(const std::shared_ptr<IMailRecipientList>& list);

// A recipient whose Caption follows the rule above.
class TCustomMailRecipient : public IMailRecipient {
public:
    QString Caption() const override { return MailRecipientCaption(Name(), EMail()); }
};

// A recipient held as plain values.
class TMailRecipient : public TCustomMailRecipient {
public:
    TMailRecipient(QString name, QString address, TMailAddressType type = matSMTP)
        : m_name(std::move(name)), m_address(std::move(address)), m_type(type)
    {
    }
    QString Name() const override { return m_name; }
    QString EMail() const override { return m_address; }
    TMailAddressType EMailType() const override { return m_type; }

private:
    QString m_name;
    QString m_address;
    TMailAddressType m_type;
};

class TCustomMailRecipientList : public IMailRecipientList, public IMailRecipientList2 {
public:
    QString Caption(int maxLen) const override;
    // The captions joined with "," and nothing cut.
    QString Captions() const { return Caption(0); }
};

// A recipient list held in memory.
class TMailRecipientArray : public TCustomMailRecipientList {
public:
    TMailRecipientArray() = default;
    explicit TMailRecipientArray(std::vector<std::shared_ptr<IMailRecipient>> items) : m_items(std::move(items)) {}
    void Add(std::shared_ptr<IMailRecipient> recipient) { m_items.push_back(std::move(recipient)); }
    int Count() const override { return int(m_items.size()); }
    std::shared_ptr<IMailRecipient> GetRecipient(int index) const override;

private:
    std::vector<std::shared_ptr<IMailRecipient>> m_items;
};

class TCustomMailAttachList : public IMailAttachList {};

class TCustomMailMessageList : public IMailMessageList {};

} // namespace tessaly::mail
