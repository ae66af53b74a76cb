#include "core/AppConfig.h"
#include "core/Exceptions.h"

#include <gtest/gtest.h>

using namespace tessaly::core;

TEST(AppConfig, BuiltInConfiguration)
{
    const TAppConfig& config = TAppConfig::BuiltIn();
    EXPECT_EQ(config.ConvertersWizard, QStringLiteral("Tessaly"));
    EXPECT_EQ(config.ConvertersTask, QStringLiteral("PSTTask"));
    ASSERT_EQ(config.Converters.size(), 1);
    EXPECT_EQ(config.Converters[0].Name, QStringLiteral("EML"));
    EXPECT_EQ(config.Converters[0].Value, QStringLiteral("EML"));
    EXPECT_EQ(config.Converters[0].Image, QStringLiteral("EML"));
    EXPECT_EQ(config.BrowseOptions, QString());
    EXPECT_EQ(config.WizardHeight, 420);
    EXPECT_EQ(config.WizardWidth, 512);
    ASSERT_EQ(config.WizardPages.size(), 2);
    EXPECT_EQ(config.WizardPages[0].Class, QStringLiteral("MailSelectFile"));
    EXPECT_EQ(config.WizardPages[0].Caption, QStringLiteral("Destination"));
    EXPECT_EQ(config.WizardPages[0].Condition, QStringLiteral("FileCount=1"));
    EXPECT_EQ(config.WizardPages[1].Class, QStringLiteral("SelectFolder"));
    EXPECT_EQ(config.WizardPages[1].Caption, QStringLiteral("Destination"));
    EXPECT_EQ(config.WizardPages[1].Condition, QStringLiteral("FileCount<>1"));
    EXPECT_TRUE(config.RelativePaths);
    ASSERT_EQ(config.Keys.size(), 1);
    EXPECT_EQ(config.Keys[0].Name, QStringLiteral("pst"));
    EXPECT_EQ(config.Keys[0].Description, QStringLiteral("Outlook data file to view"));
}

TEST(AppConfig, MalformedXmlIsAnError)
{
    EXPECT_THROW(TAppConfig::Parse("<tessaly><cmd relative_paths=\"true\"><key name=\"pst\"></tessaly>"), ETessalyError);
    const TAppConfig empty = TAppConfig::Parse("<tessaly/>");
    EXPECT_TRUE(empty.Keys.isEmpty());
    EXPECT_FALSE(empty.RelativePaths);
    // A key outside the cmd section is not a command-line key.
    EXPECT_TRUE(TAppConfig::Parse("<tessaly><filter><key name=\"x\"/></filter></tessaly>").Keys.isEmpty());
}
