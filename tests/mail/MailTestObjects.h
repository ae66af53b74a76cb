#pragma once

// Messages and lists built in memory for the tests of the message model.

#include "mail/MailMsgObj.h"

#include <QBuffer>
#include <map>

namespace tessaly::test {

using namespace tessaly::mail;

class TTestAttach : public IMailAttach {
public:
    explicit TTestAttach(QString fileName) : m_fileName(std::move(fileName)) {}
    QString FileName() const override { return m_fileName; }
    std::unique_ptr<QIODevice> Content() const override
    {
        auto buffer = std::make_unique<QBuffer>();
        buffer->setData(m_fileName.toUtf8());
        buffer->open(QIODevice::ReadOnly);
        return buffer;
    }
    QString ContentID() const override { return {}; }
    QString ContentType() const override { return {}; }
    QString ContentDisposition() const override { return {}; }
    QString ContentLocation() const override { return {}; }
    std::shared_ptr<IMailMessage> AsMailMessage() const override { return nullptr; }

private:
    QString m_fileName;
};

class TTestAttachList : public TCustomMailAttachList {
public:
    explicit TTestAttachList(std::vector<std::shared_ptr<IMailAttach>> items) : m_items(std::move(items)) {}
    int Count() const override { return int(m_items.size()); }
    std::shared_ptr<IMailAttach> GetAttach(int index) const override { return m_items.at(size_t(index)); }

private:
    std::vector<std::shared_ptr<IMailAttach>> m_items;
};

class TTestMessage : public IMailMessage, public IMailMessage3 {
public:
    std::shared_ptr<IMailRecipient> sender;
    QString subject;
    std::map<TMailRecipientType, std::shared_ptr<IMailRecipientList>> recipients;
    std::map<TMailDateType, TDateTime> dates;
    std::shared_ptr<IMailAttachList> attaches;
    QString headers;
    QString text;
    QString html;
    QString uid = QStringLiteral("7");

    std::shared_ptr<IMailRecipient> Sender() const override { return sender; }
    QString SenderIP() const override { return {}; }
    QString Subject() const override { return subject; }
    std::shared_ptr<IMailRecipientList> Recipients(TMailRecipientType kind) const override
    {
        const auto it = recipients.find(kind);
        return it == recipients.end() ? nullptr : it->second;
    }
    QString Body(TMailBodyType kind) const override { return kind == mbtText ? text : kind == mbtHTML ? html : QString(); }
    TDateTime Date(TMailDateType kind) const override
    {
        const auto it = dates.find(kind);
        return it == dates.end() ? 0 : it->second;
    }
    QString Headers() const override { return headers; }
    std::shared_ptr<IMailAttachList> Attaches() const override { return attaches; }
    QString UID() const override { return uid; }
};

// A message that also offers its text as lines.
class TTestMessage4 : public TTestMessage, public IMailMessage4 {
public:
    const TMailStringList* BodyStrings(TMailBodyType) const override { return nullptr; }
};

inline std::shared_ptr<TMailRecipientArray> Recipients(std::initializer_list<std::pair<QString, QString>> people)
{
    auto list = std::make_shared<TMailRecipientArray>();
    for (const auto& [name, address] : people)
        list->Add(std::make_shared<TMailRecipient>(name, address));
    return list;
}

} // namespace tessaly::test
