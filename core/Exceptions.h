#pragma once

#include <QString>
#include <exception>

namespace tessaly::core {

// Base of every error the user is meant to see. The message is the text shown.
class ETessalyError : public std::exception {
public:
    explicit ETessalyError(QString message) : m_message(std::move(message)), m_utf8(m_message.toUtf8()) {}
    const QString& Message() const noexcept { return m_message; }
    const char* what() const noexcept override { return m_utf8.constData(); }

private:
    QString m_message;
    QByteArray m_utf8;
};

} // namespace tessaly::core
