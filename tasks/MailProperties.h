#pragma once

// The options of a mail export job.

#include "mail/MailMsgHTML.h"
#include "mail/MailMsgIntf.h"
#include "tasks/MailFilter.h"
#include "tasks/MailTemplate.h"

#include <QString>
#include <memory>

namespace tessaly::tasks {

enum TMailConvertType {
    mctHTML, mctPDF, mctTXT, mctDOC, mctRTF, mctXLS, mctTIFF, mctJPEG, mctEMF, mctEML, mctMSG, mctXHTML, mctPST,
    mctXPS, mctMBox, mctVCard
};

enum THTMLConvertType {
    htNone, htDOC, htPDF, htXLS, htJPG, htTIFF, htGIF, htPNG, htTXT, htTXTW, htRTF, htEMF, htPrint, htSVG, htXHTML, htODT
};

enum TMailFieldType {
    mitSender, mitRecipient, mitCC, mitBCC, mitDate, mitSubject, mitBody, mitRFCHeaders, mitDateUTC, mitSenderIP
};
enum TAttachOptionType {
    aotSave, aotInfo, aotUnpack, aotEmbedImages, aotFitImages, aotConvertMsg, aotSeparateMsg, aotConvertDocuments,
    aotSeparateDocuments, aotAttachesFirst, aotOneAttachPerMail, aotManualSelect
};
enum TFileNameOptionType { fnoClearSubject, fnoSharepointCompatible };

// A set of enumeration members, one bit each.
template <class E>
class TOptionSet {
public:
    TOptionSet() = default;
    TOptionSet(std::initializer_list<E> members)
    {
        for (E m : members)
            Include(m);
    }
    bool Has(E member) const { return m_bits & Bit(member); }
    void Include(E member) { m_bits |= Bit(member); }
    void Exclude(E member) { m_bits &= ~Bit(member); }
    void Set(E member, bool on) { on ? Include(member) : Exclude(member); }
    bool operator==(const TOptionSet&) const = default;

private:
    static uint32_t Bit(E member) { return 1u << unsigned(member); }
    uint32_t m_bits = 0;
};
using TMailFields = TOptionSet<TMailFieldType>;
using TAttachOptions = TOptionSet<TAttachOptionType>;
using TFileNameOptions = TOptionSet<TFileNameOptionType>;

// The output extension of each format.
QString ConvertTypeExtension(TMailConvertType type);

class TMailProperties {
public:
    TMailProperties();

    // Output format and its side effects (extension, conversion type,
    // fields for mail formats, single output for PST and MBox).
    TMailConvertType ConvertType() const { return m_convertType; }
    void SetConvertType(TMailConvertType type);
    const QString& Extension() const { return m_extension; }
    THTMLConvertType HTMLConvertType() const { return m_htmlConvertType; }
    bool SingleImage() const { return m_singleImage; }
    bool IsMailFormat() const;
    bool CommentInInches() const;

    TMailFields Fields {mitSender, mitRecipient, mitDate, mitSubject, mitBody};
    TAttachOptions Attach {aotInfo, aotEmbedImages, aotFitImages, aotConvertMsg};
    TFileNameOptions FileNameOptions {fnoClearSubject};
    bool UseFileNameTemplate = true;
    bool CombineFiles = false;
    QString Destination;
    int Counter = 1;
    TMailFilter Filter;

    QString FileNameTemplate() const { return m_fileNameTemplate; }
    void SetFileNameTemplate(const QString& text);
    QString AttachNameTemplate() const { return m_attachNameTemplate; }
    void SetAttachNameTemplate(const QString& text);

    // Command-line views of single options.
    bool cmdField(TMailFieldType field) const { return Fields.Has(field); }
    void SetCmdField(TMailFieldType field, bool on) { Fields.Set(field, on); }
    bool cmdAttach(TAttachOptionType option) const { return Attach.Has(option); }
    // Switching on separate messages also switches on their conversion.
    void SetCmdAttach(TAttachOptionType option, bool on);
    bool cmdLastCounter() const { return Counter == -1; }
    void SetCmdLastCounter(bool on) { Counter = on ? -1 : 1; }

    // The last running number a run used; kept in the settings store
    // (section "Settings", key "LastProcessedNumber").
    int LastProcessedNumber() const { return m_lastProcessedNumber; }
    void SetLastProcessedNumber(int number);
    // The running number of the message at that index of a run.
    int RunningNumber(int index) const;

    bool HTMLEmbedImages = false; // images as data URLs (fotHTMLEmbedImages)
    bool UseExternalCSS = false;
    QString ExternalCSSFile;
    double PaperWidth = 794; // pixels (A4 at 96 dpi)
    double PaperHeight = 1123;

    // What the HTML rendering of a message takes from these options.
    mail::TMailHTMLOptions HTMLOptions() const;

    // 1, or 3 with SharePoint-compatible names.
    int PrepareFileNameOptions() const;
    // The output file name (name and extension) of a message; empty when the
    // template gives nothing.
    QString GetFileNameByTemplate(const mail::IMailMessage& message, int index) const;
    // The saved name of an attachment of a message whose output is named
    // mailFileName.
    QString GetAttachNameByTemplate(const mail::IMailAttach& attach, const QString& mailFileName, int index) const;

private:
    TMailConvertType m_convertType = mctHTML;
    QString m_extension = QStringLiteral("html");
    THTMLConvertType m_htmlConvertType = htNone;
    bool m_singleImage = false;
    QString m_fileNameTemplate = QStringLiteral("[nn]. [date] - [subject]");
    QString m_attachNameTemplate;
    mutable std::unique_ptr<TMailTemplate> m_fileNameParsed;
    mutable std::unique_ptr<TMailTemplate> m_attachNameParsed;
    int m_lastProcessedNumber = 1;
};

} // namespace tessaly::tasks
