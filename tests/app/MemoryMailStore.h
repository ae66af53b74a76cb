#pragma once

// A folder of messages held in memory, for the list tests and the list
// benchmark: messages are made when a row is first read, and counted.

#include "app/MailBrowseFrame.h"
#include "mail/MailMsgObj.h"

#include <QString>
#include <functional>
#include <vector>

namespace tessaly::test {

class TMemoryMailStore : public mail::TMailDataStore {
public:
    using TMaker = std::function<std::shared_ptr<mail::IMailMessage>(int row)>;
    TMemoryMailStore(int count, TMaker maker) : m_count(count), m_maker(std::move(maker)) {}
    int RowCount() const override { return m_count; }
    int UID(int row) const override { return row + 1; }
    std::shared_ptr<mail::IMailMessage> Message(int row) const override
    {
        ++made;
        return row >= 0 && row < m_count ? m_maker(row) : nullptr;
    }
    QString MessageFileName(int) const override { return QStringLiteral("memory"); }
    mutable int made = 0;

private:
    int m_count;
    TMaker m_maker;
};

// The general list frame over a memory store.
class TMemoryBrowseFrame : public app::TMailBrowseFrame {
public:
    void Show(const TMemoryMailStore* store, app::TListKind kind = app::lkMail)
    {
        m_store = store;
        ShowStore(QStringLiteral("Memory\\"), kind);
        Refilter();
    }
    const mail::TMailDataStore* Store() const override { return m_store; }

private:
    const TMemoryMailStore* m_store = nullptr;
};

} // namespace tessaly::test
