#pragma once

#include <QMutex>
#include <QSet>
#include <QString>
#include <exception>
#include <functional>
#include <vector>

namespace tessaly::core {

// Records exceptions that nobody handled: each is appended, with the time and
// the program version, to a log file in the application-data folder and shown
// to the user (the same text only once per run). Classes marked as ignored are
// errors the user is simply told about: they are shown but not logged.
class TCrashReporter {
public:
    using TShow = std::function<void(const QString& title, const QString& text)>;

    static TCrashReporter& Instance();

    template <class E>
    void Ignore()
    {
        QMutexLocker locker(&m_lock);
        m_ignored.push_back([](const std::exception& e) { return dynamic_cast<const E*>(&e) != nullptr; });
    }
    bool IsIgnored(const std::exception& e) const;

    QString LogFileName() const;
    void SetLogFileName(const QString& fileName);
    // How the user is told; the default writes to the standard error stream.
    void SetShow(TShow show);

    // `where` names the place that caught it ("event loop", "main").
    void Report(const std::exception& e, const QString& where);
    void ReportUnknown(const QString& where);

    // Unhandled exceptions that end the program are recorded before it aborts.
    void InstallTerminateHandler();

    // Forgets what was already shown and what is ignored.
    void Reset();

private:
    TCrashReporter();
    void Record(const QString& kind, const QString& message, const QString& where, bool log);

    mutable QMutex m_lock;
    std::vector<std::function<bool(const std::exception&)>> m_ignored;
    QString m_logFileName;
    TShow m_show;
    QSet<QString> m_shown;
};

} // namespace tessaly::core
