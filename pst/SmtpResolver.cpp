#include "pst/SmtpResolver.h"

#include "core/MessageBus.h"

#include <QElapsedTimer>

namespace tessaly::pst {

TPSTSmtpResolver::TPSTSmtpResolver(std::shared_ptr<platform::IAddressBook> book, QObject* parent)
    : QObject(parent), m_book(std::move(book))
{
}

TPSTSmtpResolver::~TPSTSmtpResolver()
{
    Stop();
}

void TPSTSmtpResolver::Resolve(const TRecordRef& record)
{
    if (!record.NeedsResolving())
        return;
    QString exchange;
    {
        QReadLocker locker(&RecordLock());
        exchange = *record.email;
    }
    QMutexLocker locker(&m_lock);
    if (const auto it = m_cache.constFind(exchange.toLower()); it != m_cache.constEnd()) {
        record.Resolved(it.value());
        return;
    }
    m_pending.push_back(record);
}

void TPSTSmtpResolver::Start()
{
    QMutexLocker locker(&m_lock);
    if (m_pending.empty() || m_thread)
        return;
    std::vector<TRecordRef> records = std::move(m_pending);
    m_pending.clear();
    m_stop = false;
    m_thread = QThread::create([this, records = std::move(records)]() mutable { Run(std::move(records)); });
    m_thread->setObjectName(QStringLiteral("ResolveSMTP"));
    const int run = ++m_run;
    connect(m_thread, &QThread::finished, this, [this, run] {
        {
            // A run that Stop ended has had its thread deleted there.
            QMutexLocker guard(&m_lock);
            if (run == m_run && m_thread) {
                m_thread->deleteLater();
                m_thread = nullptr;
            }
        }
        emit Finished();
        core::TMessageBus::Instance().Publish(core::Topic::PstUpdate);
    });
    m_thread->start();
}

void TPSTSmtpResolver::Run(std::vector<TRecordRef> records)
{
    const auto book = m_book ? m_book : platform::ProcessAddressBook();
    QElapsedTimer clock;
    clock.start();
    for (const TRecordRef& record : records) {
        if (m_stop)
            break;
        QString exchange;
        {
            QReadLocker locker(&RecordLock());
            exchange = *record.email;
        }
        if (const auto smtp = book->FindSMTP(exchange)) {
            record.Resolved(*smtp);
            QMutexLocker locker(&m_lock);
            m_cache.insert(exchange.toLower(), *smtp);
        }
        if (clock.elapsed() > 1000)
            QMetaObject::invokeMethod(this, &TPSTSmtpResolver::Refresh, Qt::QueuedConnection);
    }
}

void TPSTSmtpResolver::Stop()
{
    QThread* thread = nullptr;
    {
        QMutexLocker locker(&m_lock);
        thread = std::exchange(m_thread, nullptr);
        ++m_run;
        m_pending.clear();
    }
    if (thread) {
        m_stop = true;
        thread->wait();
        delete thread; // the end notice may still be queued; it needs no thread
    }
}

bool TPSTSmtpResolver::IsRunning() const
{
    QMutexLocker locker(&m_lock);
    return m_thread && m_thread->isRunning();
}

int TPSTSmtpResolver::Pending() const
{
    QMutexLocker locker(&m_lock);
    return int(m_pending.size());
}

std::optional<QString> TPSTSmtpResolver::Cached(const QString& exchangeAddress) const
{
    QMutexLocker locker(&m_lock);
    const auto it = m_cache.constFind(exchangeAddress.toLower());
    return it == m_cache.constEnd() ? std::nullopt : std::optional<QString>(it.value());
}

} // namespace tessaly::pst
