#include "core/MessageBus.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QSemaphore>
#include <QThread>
#include <atomic>
#include <gtest/gtest.h>

using namespace tessaly::core;

namespace {

// A thread running its own event loop, with a subscriber object living on it
// and a helper object that runs code there.
class TWorker {
public:
    TWorker()
    {
        m_thread.start();
        m_helper.moveToThread(&m_thread);
        m_object = new QObject;
        m_object->moveToThread(&m_thread);
    }
    ~TWorker()
    {
        RunOn([this] {
            delete m_object;
            m_helper.moveToThread(QCoreApplication::instance()->thread());
        });
        m_thread.quit();
        m_thread.wait();
    }
    QObject* Object() const { return m_object; }
    QThread* Thread() { return &m_thread; }

    // Runs f on the worker thread and waits for it; everything queued before
    // has run by then.
    template <class F>
    void RunOn(F f)
    {
        QMetaObject::invokeMethod(&m_helper, f, Qt::BlockingQueuedConnection);
    }
    // Holds the worker's event loop until Release.
    void Block()
    {
        QMetaObject::invokeMethod(&m_helper, [this] {
            m_blocked.release();
            m_gate.acquire();
        });
        m_blocked.acquire();
    }
    void Release() { m_gate.release(); }
    // Deletes the subscriber object through the worker's queue.
    void QueueDeleteObject()
    {
        QObject* object = std::exchange(m_object, nullptr);
        QMetaObject::invokeMethod(&m_helper, [object] { delete object; });
    }

private:
    QThread m_thread;
    QObject m_helper;
    QObject* m_object;
    QSemaphore m_blocked;
    QSemaphore m_gate;
};

const QString TestTopic = QStringLiteral("test.topic");

} // namespace

TEST(MessageBus, SameThreadDeliveryIsImmediate)
{
    auto& bus = TMessageBus::Instance();
    QObject subscriber;
    QStringList received;
    ASSERT_TRUE(bus.Subscribe(&subscriber, TestTopic, [&](const QVariant& data) { received << data.toString(); }));
    bus.Publish(TestTopic, QStringLiteral("one"));
    bus.Publish(QStringLiteral("other.topic"), QStringLiteral("ignored"));
    bus.Publish(TestTopic, QStringLiteral("two"));
    EXPECT_EQ(received, (QStringList{QStringLiteral("one"), QStringLiteral("two")}));
}

TEST(MessageBus, HandlerRunsOnSubscribersThread)
{
    auto& bus = TMessageBus::Instance();
    TWorker worker;
    QSemaphore delivered;
    std::atomic<QThread*> ranOn = nullptr;
    QString payload;
    worker.RunOn([&] {
        bus.Subscribe(worker.Object(), TestTopic, [&](const QVariant& data) {
            ranOn = QThread::currentThread();
            payload = data.toString();
            delivered.release();
        });
    });
    bus.Publish(TestTopic, QStringLiteral("across"));
    ASSERT_TRUE(delivered.tryAcquire(1, 5000));
    EXPECT_EQ(ranOn.load(), worker.Thread());
    EXPECT_EQ(payload, QStringLiteral("across"));
}

TEST(MessageBus, WorkerPublishesToMainThreadSubscriber)
{
    auto& bus = TMessageBus::Instance();
    QObject subscriber;
    QThread* ranOn = nullptr;
    bus.Subscribe(&subscriber, TestTopic, [&](const QVariant&) { ranOn = QThread::currentThread(); });
    TWorker worker;
    worker.RunOn([&] { bus.Publish(TestTopic); });
    EXPECT_EQ(ranOn, nullptr); // not before the main thread takes its events
    const QDeadlineTimer deadline(5000);
    while (!ranOn && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    EXPECT_EQ(ranOn, QThread::currentThread());
}

TEST(MessageBus, NothingArrivesAfterUnsubscribe)
{
    auto& bus = TMessageBus::Instance();
    QObject subscriber;
    int calls = 0;
    bus.Subscribe(&subscriber, TestTopic, [&](const QVariant&) { ++calls; });
    bus.Publish(TestTopic);
    bus.Unsubscribe(&subscriber, TestTopic);
    bus.Publish(TestTopic);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(bus.SubscriberCount(TestTopic), 0);
}

TEST(MessageBus, QueuedCallIsDroppedByUnsubscribe)
{
    auto& bus = TMessageBus::Instance();
    TWorker worker;
    std::atomic<int> calls = 0;
    worker.RunOn([&] { bus.Subscribe(worker.Object(), TestTopic, [&](const QVariant&) { ++calls; }); });
    worker.Block();
    bus.Publish(TestTopic); // queued behind the block
    bus.Unsubscribe(worker.Object());
    worker.Release();
    worker.RunOn([] {}); // the queue has been worked off
    EXPECT_EQ(calls.load(), 0);
}

TEST(MessageBus, DestroyedSubscriberIsNeverCalled)
{
    auto& bus = TMessageBus::Instance();
    int calls = 0;
    {
        QObject subscriber;
        bus.Subscribe(&subscriber, TestTopic, [&](const QVariant&) { ++calls; });
        EXPECT_EQ(bus.SubscriberCount(TestTopic), 1);
    }
    EXPECT_EQ(bus.SubscriberCount(TestTopic), 0);
    bus.Publish(TestTopic);
    EXPECT_EQ(calls, 0);

    // Destroyed on its own thread while a call to it waits in the queue.
    TWorker worker;
    std::atomic<int> workerCalls = 0;
    worker.RunOn([&] { bus.Subscribe(worker.Object(), TestTopic, [&](const QVariant&) { ++workerCalls; }); });
    worker.Block();
    worker.QueueDeleteObject();
    bus.Publish(TestTopic); // queued behind the deletion: it dies with its receiver
    worker.Release();
    worker.RunOn([] {});
    EXPECT_EQ(workerCalls.load(), 0);
    EXPECT_EQ(bus.SubscriberCount(TestTopic), 0);
}

TEST(MessageBus, RequestReturnsFirstAnswerOrNone)
{
    auto& bus = TMessageBus::Instance();
    const QString topic = QStringLiteral("test.request");
    EXPECT_FALSE(bus.Request(topic).isValid());

    QObject silent, first, second;
    bus.Subscribe(&silent, topic, TMessageBus::TAnswerHandler([](const QVariant&) { return QVariant(); }));
    EXPECT_FALSE(bus.Request(topic).isValid());
    bus.Subscribe(&first, topic, TMessageBus::TAnswerHandler([](const QVariant& d) { return QVariant(d.toInt() + 1); }));
    bool secondAsked = false;
    bus.Subscribe(&second, topic, TMessageBus::TAnswerHandler([&](const QVariant&) {
        secondAsked = true;
        return QVariant(-1);
    }));
    EXPECT_EQ(bus.Request(topic, 41).toInt(), 42);
    EXPECT_FALSE(secondAsked);
}

TEST(MessageBus, RequestAnsweredOnAnotherThread)
{
    auto& bus = TMessageBus::Instance();
    const QString topic = QStringLiteral("test.request.thread");
    TWorker worker;
    worker.RunOn([&] {
        bus.Subscribe(worker.Object(), topic, TMessageBus::TAnswerHandler([](const QVariant&) {
            return QVariant::fromValue(reinterpret_cast<quintptr>(QThread::currentThread()));
        }));
    });
    const QVariant answer = bus.Request(topic);
    ASSERT_TRUE(answer.isValid());
    EXPECT_EQ(answer.value<quintptr>(), reinterpret_cast<quintptr>(worker.Thread()));
}

TEST(MessageBus, SubscribingFromAnotherThreadIsRefused)
{
    auto& bus = TMessageBus::Instance();
    TWorker worker;
    EXPECT_FALSE(bus.Subscribe(worker.Object(), TestTopic, [](const QVariant&) {}));
    EXPECT_EQ(bus.SubscriberCount(TestTopic), 0);
}
