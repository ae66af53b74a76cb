#include "platform/AddressBook.h"

namespace tessaly::platform {

std::optional<QString> PrimarySmtp(const QStringList& proxies)
{
    for (const QString& proxy : proxies)
        if (proxy.startsWith(QLatin1String("SMTP:")))
            return proxy.mid(5);
    return std::nullopt;
}

void TDataFileAddressBook::Add(const QString& exchangeAddress, const QStringList& proxies)
{
    if (exchangeAddress.isEmpty() || proxies.isEmpty())
        return;
    QMutexLocker locker(&m_lock);
    m_proxies.insert(exchangeAddress.toLower(), proxies);
}

void TDataFileAddressBook::AddSmtp(const QString& exchangeAddress, const QString& smtpAddress)
{
    if (!smtpAddress.isEmpty())
        Add(exchangeAddress, {QStringLiteral("SMTP:") + smtpAddress});
}

std::optional<QString> TDataFileAddressBook::FindSMTP(const QString& address)
{
    QMutexLocker locker(&m_lock);
    const auto it = m_proxies.constFind(address.toLower());
    if (it == m_proxies.constEnd())
        return std::nullopt;
    return PrimarySmtp(it.value());
}

namespace {

QMutex& BookLock()
{
    static QMutex lock;
    return lock;
}

std::shared_ptr<TDataFileAddressBook>& DataFileBookSlot()
{
    static auto book = std::make_shared<TDataFileAddressBook>();
    return book;
}

std::shared_ptr<IAddressBook>& BookSlot()
{
    static std::shared_ptr<IAddressBook> book = DataFileBookSlot();
    return book;
}

} // namespace

std::shared_ptr<IAddressBook> ProcessAddressBook()
{
    QMutexLocker locker(&BookLock());
    return BookSlot();
}

TDataFileAddressBook& DataFileAddressBook()
{
    return *DataFileBookSlot();
}

void SetProcessAddressBook(std::shared_ptr<IAddressBook> book)
{
    QMutexLocker locker(&BookLock());
    BookSlot() = book ? std::move(book) : std::static_pointer_cast<IAddressBook>(DataFileBookSlot());
}

} // namespace tessaly::platform
