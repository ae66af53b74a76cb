#pragma once

#include <QList>
#include <QString>

namespace tessaly::core {

struct TConfigConverter {
    QString Name;
    QString Value;
    QString Image;
};

struct TConfigWizardPage {
    QString Class;
    QString Caption;
    QString Condition;
};

struct TConfigKey {
    QString Name;
    QString Description;
};

// The built-in configuration (resource "TESSALYXML"): the converters the
// export offers, the browse layout, the export wizard's pages and the
// command-line keys.
struct TAppConfig {
    QString ConvertersWizard;
    QString ConvertersTask;
    QList<TConfigConverter> Converters;
    QString BrowseOptions;
    QString WizardTitle;
    int WizardHeight = 0;
    int WizardWidth = 0;
    QList<TConfigWizardPage> WizardPages;
    bool RelativePaths = false;
    QList<TConfigKey> Keys;

    // Throws ETessalyError when the text is not well-formed XML of this shape.
    static TAppConfig Parse(const QByteArray& xml);
    // The configuration built into the program, read once.
    static const TAppConfig& BuiltIn();
};

// The text of a resource built into the program ("TESSALYXML", "MAILCSS").
QString BuiltInResource(const QString& name);

} // namespace tessaly::core
