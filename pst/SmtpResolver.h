#pragma once

#include "pst/PSTMessage.h"
#include "platform/AddressBook.h"

#include <QHash>
#include <QObject>
#include <QThread>
#include <atomic>
#include <memory>
#include <vector>

namespace tessaly::pst {

// Resolves Exchange addresses in the background: records are collected with
// Resolve and worked off by the task "ResolveSMTP" after Start. A second into
// a run, every resolved record asks for a refresh; at the end "pst.update" is
// published on the message bus.
class TPSTSmtpResolver : public QObject {
    Q_OBJECT
public:
    // Without a book, the process-wide one is used.
    explicit TPSTSmtpResolver(std::shared_ptr<platform::IAddressBook> book = nullptr, QObject* parent = nullptr);
    ~TPSTSmtpResolver() override;

    // From the cache at once, else queued for the task.
    void Resolve(const TRecordRef& record);
    void Start();
    // Ends a run after the record at hand and waits for it; drops the queue.
    void Stop();

    bool IsRunning() const;
    int Pending() const;
    std::optional<QString> Cached(const QString& exchangeAddress) const;

signals:
    void Refresh();
    void Finished();

private:
    void Run(std::vector<TRecordRef> records);

    std::shared_ptr<platform::IAddressBook> m_book;
    mutable QMutex m_lock;
    QHash<QString, QString> m_cache; // Exchange address -> SMTP address
    std::vector<TRecordRef> m_pending;
    QThread* m_thread = nullptr;
    int m_run = 0; // numbers the runs
    std::atomic<bool> m_stop {false};
};

} // namespace tessaly::pst
