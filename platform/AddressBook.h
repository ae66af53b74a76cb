#pragma once

// Turning Exchange addresses into internet (SMTP) addresses.

#include <QHash>
#include <QMutex>
#include <QString>
#include <QStringList>
#include <memory>
#include <optional>

namespace tessaly::platform {

class IAddressBook {
public:
    virtual ~IAddressBook() = default;
    // The primary SMTP address of an Exchange address; nothing when unknown.
    virtual std::optional<QString> FindSMTP(const QString& address) = 0;
};

// The primary address in a proxy-address list: the first "SMTP:" entry
// (upper case marks the primary one; "smtp:" entries are secondary).
std::optional<QString> PrimarySmtp(const QStringList& proxies);

// The portable address book: what the open data files themselves say about
// their Exchange addresses (a recipient's or sender's SMTP property), by
// Exchange address without regard to case.
class TDataFileAddressBook : public IAddressBook {
public:
    void Add(const QString& exchangeAddress, const QStringList& proxies);
    void AddSmtp(const QString& exchangeAddress, const QString& smtpAddress);
    std::optional<QString> FindSMTP(const QString& address) override;

private:
    QMutex m_lock;
    QHash<QString, QStringList> m_proxies;
};

// The book the program uses; tests may put another in its place.
std::shared_ptr<IAddressBook> ProcessAddressBook();
TDataFileAddressBook& DataFileAddressBook();
void SetProcessAddressBook(std::shared_ptr<IAddressBook> book);

} // namespace tessaly::platform
