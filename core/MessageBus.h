#pragma once

#include <QHash>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QVariant>
#include <functional>
#include <memory>
#include <vector>

namespace tessaly::core {

// Topics of the program-wide bus.
namespace Topic {
inline const QString RequestMail = QStringLiteral("request.mail");
inline const QString PstUpdate = QStringLiteral("pst.update");
inline const QString PstFolderRequest = QStringLiteral("pstfolder.request");
inline const QString FileChecked = QStringLiteral("file.checked");
inline const QString FileCheckRequest = QStringLiteral("file.check.request");
inline const QString PstFileChecked = QStringLiteral("pst.file.checked");
inline const QString GuiFontSize = QStringLiteral("gui.font.size");
} // namespace Topic

class TBusReceiver;
struct TBusSubscription;

// Publish/subscribe and request/answer keyed by text topics.
//
// A handler runs on the thread of the object that subscribed: a publisher on
// that thread calls it at once, one on another thread posts it to that
// thread's event loop. Subscriptions end with Unsubscribe or when the
// subscriber is destroyed; after either the handler is never called.
class TMessageBus {
public:
    // A handler's answer; an invalid QVariant means "no answer".
    using TAnswerHandler = std::function<QVariant(const QVariant& data)>;
    using THandler = std::function<void(const QVariant& data)>;

    static TMessageBus& Instance();

    // Must be called on the subscriber's own thread; returns false otherwise.
    bool Subscribe(QObject* subscriber, const QString& topic, THandler handler);
    bool Subscribe(QObject* subscriber, const QString& topic, TAnswerHandler handler);
    // With an empty topic, every subscription of the subscriber ends. May be
    // called from any thread; a call already posted to the subscriber is dropped.
    void Unsubscribe(QObject* subscriber, const QString& topic = {});

    void Publish(const QString& topic, const QVariant& data = {});
    // Asks the subscribers in the order they subscribed; the first valid answer
    // is returned, an invalid QVariant when none answers. Waits for handlers on
    // other threads, so never request from a thread whose handlers you wait for.
    QVariant Request(const QString& topic, const QVariant& data = {});

    int SubscriberCount(const QString& topic) const;

private:
    friend class TBusReceiver;
    TMessageBus() = default;
    bool Add(QObject* subscriber, const QString& topic, TAnswerHandler handler);
    void Detach(TBusReceiver* receiver, const QString& topic);
    void Forget(TBusReceiver* receiver, QObject* subscriber);
    std::vector<std::shared_ptr<TBusSubscription>> Snapshot(const QString& topic) const;

    mutable QMutex m_lock;
    QHash<QString, std::vector<std::shared_ptr<TBusSubscription>>> m_topics;
    QHash<QObject*, TBusReceiver*> m_receivers; // subscriber -> its receiver
};

} // namespace tessaly::core
