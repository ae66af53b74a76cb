#include "core/AppConfig.h"

#include "core/Exceptions.h"

#include <QCoreApplication>
#include <QFile>
#include <QXmlStreamReader>

static void InitTessalyResources()
{
    Q_INIT_RESOURCE(tessaly);
}

namespace tessaly::core {

namespace {

QString Attr(const QXmlStreamReader& xml, const char* name)
{
    return xml.attributes().value(QLatin1String(name)).toString();
}

} // namespace

TAppConfig TAppConfig::Parse(const QByteArray& data)
{
    TAppConfig config;
    QXmlStreamReader xml(data);
    QString section;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement)
            continue;
        const auto name = xml.name();
        if (name == QLatin1String("converters")) {
            section = name.toString();
            config.ConvertersWizard = Attr(xml, "wizard");
            config.ConvertersTask = Attr(xml, "task");
        } else if (name == QLatin1String("convert") && section == QLatin1String("converters")) {
            config.Converters.append({Attr(xml, "name"), Attr(xml, "value"), Attr(xml, "image")});
        } else if (name == QLatin1String("layout") || name == QLatin1String("filter")) {
            section = name.toString();
        } else if (name == QLatin1String("browse") && section == QLatin1String("layout")) {
            config.BrowseOptions = Attr(xml, "options");
        } else if (name == QLatin1String("wizard")) {
            section = name.toString();
            config.WizardTitle = Attr(xml, "title");
            config.WizardHeight = Attr(xml, "height").toInt();
            config.WizardWidth = Attr(xml, "width").toInt();
        } else if (name == QLatin1String("page") && section == QLatin1String("wizard")) {
            config.WizardPages.append({Attr(xml, "class"), Attr(xml, "caption"), Attr(xml, "condition")});
        } else if (name == QLatin1String("cmd")) {
            section = name.toString();
            config.RelativePaths = Attr(xml, "relative_paths").compare(QLatin1String("true"), Qt::CaseInsensitive) == 0;
        } else if (name == QLatin1String("key") && section == QLatin1String("cmd")) {
            config.Keys.append({Attr(xml, "name"), Attr(xml, "desc")});
        }
    }
    if (xml.hasError())
        throw ETessalyError(QCoreApplication::translate("TAppConfig", "Invalid configuration: %1 (line %2)").arg(xml.errorString()).arg(xml.lineNumber()));
    return config;
}

QString BuiltInResource(const QString& name)
{
    InitTessalyResources();
    QFile file(QStringLiteral(":/") + name);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

const TAppConfig& TAppConfig::BuiltIn()
{
    static const TAppConfig config = [] {
        InitTessalyResources();
        QFile file(QStringLiteral(":/TESSALYXML"));
        if (!file.open(QIODevice::ReadOnly))
            throw ETessalyError(QCoreApplication::translate("TAppConfig", "The built-in configuration is missing"));
        return Parse(file.readAll());
    }();
    return config;
}

} // namespace tessaly::core
