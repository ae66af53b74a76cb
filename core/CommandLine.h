#pragma once

#include "core/Exceptions.h"

#include <QDir>
#include <QList>
#include <QString>
#include <QStringList>

namespace tessaly::core {

struct TAppConfig;

// Result codes of a command-line run.
enum TCmdResult {
    crOK = 0,
    crNothing = 1, // nothing to do or show (help printed, run cancelled)
    crCommandLine = 2,
    crNoSource = 3,
    crException = 4,
    crInternal = 5,
    crInvalidSource = 7,
};

// A failed command line: the code picks the message, the detail says what
// exactly was wrong.
class ECommandLineError : public ETessalyError {
public:
    ECommandLineError(int code, const QString& detail);
    int Code() const { return m_code; }
    const QString& Detail() const { return m_detail; }

private:
    int m_code;
    QString m_detail;
};

enum class TKeyKind {
    Value,  // -key value, -key=value
    Switch, // -key (true), -key=false
};

struct TCommandKey {
    QString Name;
    QString Description;
    TKeyKind Kind = TKeyKind::Value;
    bool IsPath = false; // a relative value is made absolute against the working directory
};

// Source arguments and -key / --key switches. Key names match without
// regard to case.
class TCommandLine {
public:
    void DefineKey(const TCommandKey& key);
    // The keys of the built-in configuration; their values are paths when the
    // configuration allows relative paths.
    void DefineKeys(const TAppConfig& config);
    const QList<TCommandKey>& Keys() const { return m_keys; }
    const TCommandKey* FindKey(const QString& name) const;

    // Arguments without the program name. Throws ECommandLineError with code
    // crCommandLine for an unknown key, a missing value or a bad switch value.
    void Parse(const QStringList& args, const QString& workingDir = QDir::currentPath());

    // Any key given asks for a command-line run; bare file names do not.
    bool IsRun() const { return !m_given.isEmpty(); }
    bool HelpRequested() const { return m_help; }
    // "--version" (or "-version") was given.
    bool VersionRequested() const { return m_version; }
    // No run, or a run whose only key is "pst": the viewer's window opens.
    bool WantsMainWindow() const;

    const QStringList& Sources() const { return m_sources; }
    bool HasKey(const QString& name) const;
    // The value given last.
    QString Value(const QString& name) const;
    // Every value given, in order ("-pst a.pst -pst b.pst").
    QStringList Values(const QString& name) const;
    bool Switch(const QString& name) const;
    // Names of the keys given, in their defined spelling and first-given order.
    QStringList KeyNames() const;
    // The command line as given, with quotes around arguments that need them.
    QString Text() const { return m_text; }

    QString HelpText() const;
    QString HelpHtml() const;

    static QString ErrorMessage(int code);
    // The HTML page shown when a run failed; empty for codes 0 and 1.
    QString ErrorPage(int code, const QString& detail = {}) const;

    static TCommandLine& Global();

private:
    struct TGiven {
        const TCommandKey* key;
        QString value;
        QStringList values; // every value, the last one too
    };
    const TGiven* FindGiven(const QString& name) const;
    QList<QPair<QString, QString>> HelpLines() const;

    QList<TCommandKey> m_keys;
    QList<TGiven> m_given;
    QStringList m_sources;
    QString m_text;
    bool m_help = false;
    bool m_version = false;
};

} // namespace tessaly::core
