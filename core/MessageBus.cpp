#include "core/MessageBus.h"

#include <QCoreApplication>
#include <QEvent>
#include <QLoggingCategory>
#include <QThread>
#include <QWaitCondition>
#include <atomic>

Q_LOGGING_CATEGORY(lcBus, "tessaly.bus")

namespace tessaly::core {

struct TBusSubscription {
    QString topic;
    TBusReceiver* receiver = nullptr; // valid while active
    TMessageBus::TAnswerHandler handler;
    std::atomic<bool> active{true};
};

namespace {

// The answer to one request handled on another thread.
class TBusReply {
public:
    void Finish(const QVariant& value)
    {
        QMutexLocker locker(&m_lock);
        if (m_finished)
            return;
        m_value = value;
        m_finished = true;
        m_done.wakeAll();
    }
    QVariant Wait()
    {
        QMutexLocker locker(&m_lock);
        while (!m_finished)
            m_done.wait(&m_lock);
        return m_value;
    }

private:
    QMutex m_lock;
    QWaitCondition m_done;
    bool m_finished = false;
    QVariant m_value;
};

const QEvent::Type BusCallEvent = QEvent::Type(QEvent::registerEventType());

// A handler call posted to the subscriber's thread. If the receiver dies
// before the event is delivered, Qt deletes the event unhandled and the
// waiting request gets no answer.
class TBusCall : public QEvent {
public:
    TBusCall(std::shared_ptr<TBusSubscription> subscription, QVariant data, std::shared_ptr<TBusReply> reply)
        : QEvent(BusCallEvent), subscription(std::move(subscription)), data(std::move(data)), reply(std::move(reply))
    {
    }
    ~TBusCall() override
    {
        if (reply)
            reply->Finish(QVariant());
    }
    std::shared_ptr<TBusSubscription> subscription;
    QVariant data;
    std::shared_ptr<TBusReply> reply;
};

} // namespace

// Lives as a child of the subscriber, on its thread; its end ends the
// subscriber's subscriptions.
class TBusReceiver : public QObject {
public:
    explicit TBusReceiver(QObject* subscriber) : QObject(subscriber), m_subscriber(subscriber) {}
    ~TBusReceiver() override { TMessageBus::Instance().Forget(this, m_subscriber); }

protected:
    bool event(QEvent* e) override
    {
        if (e->type() != BusCallEvent)
            return QObject::event(e);
        auto* call = static_cast<TBusCall*>(e);
        QVariant answer;
        if (call->subscription->active)
            answer = call->subscription->handler(call->data);
        if (call->reply)
            call->reply->Finish(answer);
        return true;
    }

private:
    QObject* m_subscriber; // only a key, never used as an object once it dies
};

TMessageBus& TMessageBus::Instance()
{
    // Never destroyed: receivers may detach during static destruction.
    static TMessageBus* bus = new TMessageBus;
    return *bus;
}

bool TMessageBus::Subscribe(QObject* subscriber, const QString& topic, THandler handler)
{
    return Add(subscriber, topic, [handler = std::move(handler)](const QVariant& data) {
        handler(data);
        return QVariant();
    });
}

bool TMessageBus::Subscribe(QObject* subscriber, const QString& topic, TAnswerHandler handler)
{
    return Add(subscriber, topic, std::move(handler));
}

bool TMessageBus::Add(QObject* subscriber, const QString& topic, TAnswerHandler handler)
{
    if (!subscriber || !handler)
        return false;
    if (subscriber->thread() != QThread::currentThread()) {
        qCWarning(lcBus, "Subscription to \"%s\" refused: not made on the subscriber's thread", qUtf8Printable(topic));
        return false;
    }
    QMutexLocker locker(&m_lock);
    TBusReceiver*& receiver = m_receivers[subscriber];
    if (!receiver)
        receiver = new TBusReceiver(subscriber);
    auto subscription = std::make_shared<TBusSubscription>();
    subscription->topic = topic;
    subscription->receiver = receiver;
    subscription->handler = std::move(handler);
    m_topics[topic].push_back(std::move(subscription));
    return true;
}

void TMessageBus::Unsubscribe(QObject* subscriber, const QString& topic)
{
    TBusReceiver* receiver = nullptr;
    {
        QMutexLocker locker(&m_lock);
        receiver = m_receivers.value(subscriber);
    }
    if (receiver)
        Detach(receiver, topic);
}

void TMessageBus::Detach(TBusReceiver* receiver, const QString& topic)
{
    QMutexLocker locker(&m_lock);
    for (auto it = m_topics.begin(); it != m_topics.end();) {
        if (topic.isEmpty() || it.key() == topic) {
            auto& list = it.value();
            std::erase_if(list, [receiver](const std::shared_ptr<TBusSubscription>& s) {
                if (s->receiver != receiver)
                    return false;
                s->active = false;
                return true;
            });
        }
        if (it.value().empty())
            it = m_topics.erase(it);
        else
            ++it;
    }
}

void TMessageBus::Forget(TBusReceiver* receiver, QObject* subscriber)
{
    Detach(receiver, QString());
    QMutexLocker locker(&m_lock);
    if (m_receivers.value(subscriber) == receiver)
        m_receivers.remove(subscriber);
}

std::vector<std::shared_ptr<TBusSubscription>> TMessageBus::Snapshot(const QString& topic) const
{
    QMutexLocker locker(&m_lock);
    return m_topics.value(topic);
}

void TMessageBus::Publish(const QString& topic, const QVariant& data)
{
    std::vector<std::shared_ptr<TBusSubscription>> direct;
    {
        // Posting under the lock: a receiver cannot finish detaching while we
        // post to it, and Qt drops what is still queued when it is destroyed.
        QMutexLocker locker(&m_lock);
        const auto it = m_topics.constFind(topic);
        if (it == m_topics.constEnd())
            return;
        for (const auto& s : it.value()) {
            if (s->receiver->thread() == QThread::currentThread())
                direct.push_back(s);
            else
                QCoreApplication::postEvent(s->receiver, new TBusCall(s, data, nullptr));
        }
    }
    for (const auto& s : direct)
        if (s->active)
            s->handler(data);
}

QVariant TMessageBus::Request(const QString& topic, const QVariant& data)
{
    for (const auto& s : Snapshot(topic)) {
        QVariant answer;
        std::shared_ptr<TBusReply> reply;
        {
            QMutexLocker locker(&m_lock);
            if (!s->active)
                continue;
            if (s->receiver->thread() != QThread::currentThread()) {
                reply = std::make_shared<TBusReply>();
                QCoreApplication::postEvent(s->receiver, new TBusCall(s, data, reply));
            }
        }
        if (reply)
            answer = reply->Wait();
        else
            answer = s->handler(data);
        if (answer.isValid())
            return answer;
    }
    return QVariant();
}

int TMessageBus::SubscriberCount(const QString& topic) const
{
    QMutexLocker locker(&m_lock);
    return int(m_topics.value(topic).size());
}

} // namespace tessaly::core
