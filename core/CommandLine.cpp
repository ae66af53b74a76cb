#include "core/CommandLine.h"

#include "core/AppConfig.h"
#include "core/HtmlText.h"

#include <QCoreApplication>
#include <QFileInfo>

namespace tessaly::core {

namespace {

QString Quoted(const QString& arg)
{
    if (!arg.isEmpty() && !arg.contains(QLatin1Char(' ')) && !arg.contains(QLatin1Char('\t')))
        return arg;
    return QLatin1Char('"') + arg + QLatin1Char('"');
}

bool IsHelp(const QString& arg)
{
    static const QStringList Help = {QStringLiteral("--help"), QStringLiteral("-help"), QStringLiteral("-h"),
        QStringLiteral("-?"), QStringLiteral("/?")};
    return Help.contains(arg, Qt::CaseInsensitive);
}

bool IsVersion(const QString& arg)
{
    return arg.compare(QLatin1String("--version"), Qt::CaseInsensitive) == 0
        || arg.compare(QLatin1String("-version"), Qt::CaseInsensitive) == 0;
}

// Options the Qt application object takes for itself ("-style Fusion",
// "-platform offscreen", "-reverse"...): left for it, with their values.
// 0 when arg is none of them, else how many arguments it spans.
int QtOptionLength(const QString& arg)
{
    static const QStringList WithValue = {QStringLiteral("style"), QStringLiteral("stylesheet"),
        QStringLiteral("platform"), QStringLiteral("platformpluginpath"), QStringLiteral("platformtheme"),
        QStringLiteral("plugin"), QStringLiteral("display"), QStringLiteral("geometry"),
        QStringLiteral("qwindowgeometry"), QStringLiteral("qwindowicon"), QStringLiteral("qwindowtitle"),
        QStringLiteral("session"), QStringLiteral("title"), QStringLiteral("fontengine")};
    static const QStringList Switches = {QStringLiteral("reverse"), QStringLiteral("widgetcount"),
        QStringLiteral("nograb"), QStringLiteral("dograb"), QStringLiteral("sync")};
    const QString name = arg.mid(arg.startsWith(QLatin1String("--")) ? 2 : 1);
    if (name.contains(QLatin1Char('=')))
        return WithValue.contains(name.section(QLatin1Char('='), 0, 0)) ? 1 : 0;
    if (WithValue.contains(name))
        return 2;
    return Switches.contains(name) ? 1 : 0;
}

bool ParseSwitchValue(const QString& text, bool& value)
{
    const QString t = text.trimmed().toLower();
    if (t == QLatin1String("true") || t == QLatin1String("1") || t == QLatin1String("yes") || t == QLatin1String("on"))
        value = true;
    else if (t == QLatin1String("false") || t == QLatin1String("0") || t == QLatin1String("no") || t == QLatin1String("off"))
        value = false;
    else
        return false;
    return true;
}

} // namespace

ECommandLineError::ECommandLineError(int code, const QString& detail)
    : ETessalyError(detail.isEmpty() ? TCommandLine::ErrorMessage(code)
                                     : TCommandLine::ErrorMessage(code) + QLatin1String(": ") + detail)
    , m_code(code)
    , m_detail(detail)
{
}

void TCommandLine::DefineKey(const TCommandKey& key)
{
    for (auto& k : m_keys) {
        if (k.Name.compare(key.Name, Qt::CaseInsensitive) == 0) {
            k = key;
            return;
        }
    }
    m_keys.append(key);
}

void TCommandLine::DefineKeys(const TAppConfig& config)
{
    for (const auto& key : config.Keys)
        DefineKey({key.Name, key.Description, TKeyKind::Value, config.RelativePaths});
}

const TCommandKey* TCommandLine::FindKey(const QString& name) const
{
    for (const auto& k : m_keys)
        if (k.Name.compare(name, Qt::CaseInsensitive) == 0)
            return &k;
    return nullptr;
}

void TCommandLine::Parse(const QStringList& args, const QString& workingDir)
{
    m_given.clear();
    m_sources.clear();
    m_help = false;
    m_version = false;
    QStringList shown;
    for (const auto& a : args)
        shown << Quoted(a);
    m_text = shown.join(QLatin1Char(' '));

    bool keysEnded = false;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString& arg = args[i];
        if (keysEnded || !arg.startsWith(QLatin1Char('-'))) {
            if (!arg.isEmpty())
                m_sources << arg;
            continue;
        }
        if (arg == QLatin1String("--")) {
            keysEnded = true;
            continue;
        }
        if (IsHelp(arg)) {
            m_help = true;
            continue;
        }
        if (IsVersion(arg)) {
            m_version = true;
            continue;
        }
        // Our own keys first: a key of ours may share a name with Qt's.
        if (const int span = QtOptionLength(arg); span > 0 && !FindKey(arg.mid(arg.startsWith(QLatin1String("--")) ? 2 : 1).section(QLatin1Char('='), 0, 0))) {
            i += span - 1;
            continue;
        }
        QString name = arg.mid(arg.startsWith(QLatin1String("--")) ? 2 : 1);
        QString value;
        bool hasValue = false;
        if (const qsizetype eq = name.indexOf(QLatin1Char('=')); eq >= 0) {
            value = name.mid(eq + 1);
            name = name.left(eq);
            hasValue = true;
        }
        if (name.isEmpty())
            throw ECommandLineError(crCommandLine, QCoreApplication::translate("TCommandLine", "a key without a name: %1").arg(arg));
        const TCommandKey* key = FindKey(name);
        if (!key)
            throw ECommandLineError(crCommandLine, QCoreApplication::translate("TCommandLine", "unknown key -%1").arg(name));
        if (key->Kind == TKeyKind::Switch) {
            bool on = true;
            if (hasValue && !ParseSwitchValue(value, on))
                throw ECommandLineError(crCommandLine,
                    QCoreApplication::translate("TCommandLine", "the key -%1 takes true or false, not \"%2\"").arg(key->Name, value));
            value = on ? QStringLiteral("true") : QStringLiteral("false");
        } else if (!hasValue) {
            if (i + 1 >= args.size())
                throw ECommandLineError(crCommandLine, QCoreApplication::translate("TCommandLine", "the key -%1 needs a value").arg(key->Name));
            value = args[++i];
        }
        if (key->IsPath && !value.isEmpty() && QFileInfo(value).isRelative())
            value = QDir::cleanPath(QDir(workingDir).absoluteFilePath(value));
        bool replaced = false;
        for (auto& g : m_given) {
            if (g.key == key) {
                g.value = value;
                g.values << value;
                replaced = true;
            }
        }
        if (!replaced)
            m_given.append({key, value, {value}});
    }
}

bool TCommandLine::WantsMainWindow() const
{
    if (m_help || m_version)
        return false;
    if (!IsRun())
        return true;
    return m_given.size() == 1 && m_given.first().key->Name.compare(QLatin1String("pst"), Qt::CaseInsensitive) == 0;
}

const TCommandLine::TGiven* TCommandLine::FindGiven(const QString& name) const
{
    for (const auto& g : m_given)
        if (g.key->Name.compare(name, Qt::CaseInsensitive) == 0)
            return &g;
    return nullptr;
}

bool TCommandLine::HasKey(const QString& name) const
{
    return FindGiven(name) != nullptr;
}

QString TCommandLine::Value(const QString& name) const
{
    const TGiven* g = FindGiven(name);
    return g ? g->value : QString();
}

QStringList TCommandLine::Values(const QString& name) const
{
    const TGiven* g = FindGiven(name);
    return g ? g->values : QStringList();
}

bool TCommandLine::Switch(const QString& name) const
{
    return Value(name) == QLatin1String("true");
}

QStringList TCommandLine::KeyNames() const
{
    QStringList names;
    for (const auto& g : m_given)
        names << g.key->Name;
    return names;
}

QList<QPair<QString, QString>> TCommandLine::HelpLines() const
{
    QList<QPair<QString, QString>> lines;
    for (const auto& k : m_keys) {
        QString synopsis = QLatin1Char('-') + k.Name;
        if (k.Kind == TKeyKind::Value)
            synopsis += k.IsPath ? QLatin1String(" FILE") : QLatin1String(" VALUE");
        lines.append({synopsis, k.Description});
    }
    return lines;
}

QString TCommandLine::HelpText() const
{
    const auto lines = HelpLines();
    qsizetype width = 0;
    for (const auto& l : lines)
        width = std::max(width, l.first.size());
    QString text = QCoreApplication::translate("TCommandLine", "Usage: tessaly [FILE...] [-key value] [-switch]\n"
                                                               "Keys may also be written --key, --key=value or -switch=false.\n\nKeys:\n");
    for (const auto& l : lines)
        text += QLatin1String("  ") + l.first.leftJustified(width + 2) + l.second + QLatin1Char('\n');
    return text;
}

QString TCommandLine::HelpHtml() const
{
    QString html = QLatin1String("<b>") + HtmlEncode(QCoreApplication::translate("TCommandLine", "Keys:")) + QLatin1String("</b><br>");
    for (const auto& l : HelpLines())
        html += QLatin1String("&nbsp;&nbsp;<b>") + HtmlEncode(l.first) + QLatin1String("</b>&nbsp;&nbsp;")
            + HtmlEncode(l.second) + QLatin1String("<br>");
    return html;
}

QString TCommandLine::ErrorMessage(int code)
{
    switch (code) {
    case crCommandLine: return QCoreApplication::translate("TCommandLine", "Error in command line");
    case crNoSource: return QCoreApplication::translate("TCommandLine", "No source or destination");
    case crException: return QCoreApplication::translate("TCommandLine", "Exception");
    case crInternal: return QCoreApplication::translate("TCommandLine", "Internal error. Please report it to the developers of Tessaly");
    case crInvalidSource: return QCoreApplication::translate("TCommandLine", "Invalid source files");
    default: return {};
    }
}

QString TCommandLine::ErrorPage(int code, const QString& detail) const
{
    if (code == crOK || code == crNothing)
        return {};
    QString message = HtmlEncode(ErrorMessage(code));
    if (!detail.isEmpty())
        message += QLatin1String("<br>&nbsp;&nbsp;") + HtmlEncode(detail);
    return QLatin1String("<b><font color=clRed>") + HtmlEncode(QCoreApplication::translate("TCommandLine", "Error:"))
        + QLatin1String("</font></b><br>&nbsp;&nbsp;") + message + QLatin1String("<br>&nbsp;<br>") + QLatin1String("<b>")
        + HtmlEncode(QCoreApplication::translate("TCommandLine", "Command line:")) + QLatin1String(" </b><br>&nbsp;&nbsp;")
        + HtmlEncode(m_text)
        + QLatin1String("<p>&nbsp;<p><hr><p>") + HelpHtml();
}

TCommandLine& TCommandLine::Global()
{
    static TCommandLine commandLine;
    return commandLine;
}

} // namespace tessaly::core
