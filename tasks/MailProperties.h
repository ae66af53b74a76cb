#pragma once

// The options of a mail export job.

#include "mail/MailMsgHTML.h"
#include "mail/MailMsgIntf.h"
#include "tasks/MailFilter.h"
#include "tasks/MailTemplate.h"

#include "core/CommandLine.h"
#include "core/SettingsStore.h"

#include <QList>
#include <QPair>
#include <QSizeF>
#include <QString>
#include <QStringList>
#include <functional>
#include <memory>

namespace tessaly::tasks {

enum TMailConvertType {
    mctHTML, mctPDF, mctTXT, mctDOC, mctRTF, mctXLS, mctTIFF, mctJPEG, mctEMF, mctEML, mctMSG, mctXHTML, mctPST,
    mctXPS, mctMBox, mctVCard,
    mctICal // meetings and appointments as iCalendar files, after the sixteen
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

enum TTextExportOptionType { tetUseHTMLBody };
enum TFormatOptionType { fotXHTML, fotHTMLEmbedImages };
enum TPrintMeta { pmNone, pmTop, pmNext };
enum TCombineDocOption { cdoTOC, cdoEveryFileNewPage };
enum TCheckFileMode { cfmAsk, cfmOverwrite, cfmRename, cfmSkip, cfmCancel };
enum TLogMode { lmOverwrite, lmAppend };
enum TLogVerbosity { lvError, lvDetail };
enum TInsertPosition { ipBefore, ipAfter };

// The output extension of each format.
QString ConvertTypeExtension(TMailConvertType type);

// The paper sizes PDF output is printed on, by name: a4 (the default),
// a3, a5, letter and legal; portrait, in pixels at 96 dpi.
const QList<QPair<QString, QSizeF>>& PaperSizes();

// Settings of the document back ends that this program reads.
struct TPaperProperties {
    double Width = 794;  // pixels: A4 at 96 dpi
    double Height = 1123;
    double Margin = 15; // millimetres on every side
};
struct TPDFProperties {
    bool EmbedFonts = true;
};
struct TTIFFProperties {
    bool SingleImage = false; // one multi-page image
};
struct TTitleProperties {
    QString CommentRight = QStringLiteral("Page [page]");
    QString CommentLeft = QStringLiteral("[date]");
};
struct TDocFileProperties {
    TOptionSet<TCombineDocOption> CombineOptions;
};
struct THTMLConvertProperties {
    THTMLConvertType Type = htNone;
    TPaperProperties Paper;
    TPDFProperties PDF;
    TTIFFProperties TIFF;
    TTitleProperties Title;
};

// Layout options of the mail export: where page breaks go.
struct TMailLayoutProperties {
    QString BreakPattern;
    TInsertPosition InsertPosition = ipBefore;
};

// Output names of messages combined into one output.
class TMailCombineList {
public:
    void Add(const QString& name) { m_names << name; }
    void Remove(const QString& name) { m_names.removeAll(name); }
    void Clear() { m_names.clear(); }
    const QStringList& Names() const { return m_names; }

private:
    QStringList m_names;
};

// Options that hold for every conversion of the program.
struct TMailConverterOptions {
    QString LogTemplate;
    // The program-wide object, once there is one.
    static TMailConverterOptions* Instance();
    static void SetInstance(TMailConverterOptions* options);
};

// The options every job has, whatever it converts.
class TCustomProperties {
public:
    QString Destination;
    bool KeepFolderStructure = false;
    int KeepFolderLevel = 0;
    TCheckFileMode CheckFileMode = cfmAsk;
    bool DeleteOriginals = false;
    bool OpenDestination = false;
    bool CombineFiles = false;
    // HTML output keeps the message's references to pictures on other hosts
    // (a page opened later then asks those hosts for them); off, no request
    // leaves the page.
    bool RemotePictures = false;
    // HTML output saves the message's pictures in a folder beside the page
    // ("NAME_files") instead of putting them inside it as data URLs.
    bool PicturesBeside = false;
    // The vCard version of contacts: 3 (RFC 2426) or 4 (RFC 6350).
    int VCardVersion = 3;
    // A run into a mail format writes contacts as vCards and meetings and
    // appointments as iCalendar files; on, they go to the chosen format too.
    bool OneFormat = false;
    bool CopyDateStamps = false;
    int LimitCount = 0;
    bool NoGUI = false;
    TLogMode LogMode = lmOverwrite;
    QString LogFileName;
    TLogVerbosity LogVerbosity = lvError;
    QString LogTemplate;
};

struct TPropertyInfo;

class TMailProperties : public TCustomProperties {
public:
    TMailProperties();
    ~TMailProperties();

    // Output format and its side effects (extension, conversion type,
    // fields for mail formats, single output for PST and MBox).
    TMailConvertType ConvertType() const { return m_convertType; }
    void SetConvertType(TMailConvertType type);
    const QString& Extension() const { return m_extension; }
    THTMLConvertType HTMLConvertType() const { return HTMLProperties.Type; }
    bool SingleImage() const { return HTMLProperties.TIFF.SingleImage; }
    bool IsMailFormat() const;
    bool CommentInInches() const;

    TMailFields Fields {mitSender, mitRecipient, mitDate, mitSubject, mitBody};
    TAttachOptions Attach {aotInfo, aotEmbedImages, aotFitImages, aotConvertMsg};
    TFileNameOptions FileNameOptions {fnoClearSubject};
    TOptionSet<TTextExportOptionType> TextExportOptions;
    TOptionSet<TFormatOptionType> FormatOptions;
    TPrintMeta PrintMeta = pmNone;
    bool UseFileNameTemplate = true;
    int Counter = 1;
    QString ExcludeAttachDocuments;
    bool DocConverterOFF = false;
    bool UseExternalCSS = false;
    QString ExternalCSSFile;
    TDocFileProperties Doc;
    THTMLConvertProperties HTMLProperties;
    TMailLayoutProperties Layout;
    TMailFilter Filter;
    // Source files of the run, for the wizard and the destination.
    int SourceFileCount = 0;

    TPaperProperties& Paper() { return HTMLProperties.Paper; }
    TPDFProperties& PDF() { return HTMLProperties.PDF; }
    TTIFFProperties& TIFF() { return HTMLProperties.TIFF; }
    TTitleProperties& Title() { return HTMLProperties.Title; }

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
    bool cmdHTMLEmbedImages() const { return FormatOptions.Has(fotHTMLEmbedImages); }
    void SetCmdHTMLEmbedImages(bool on) { FormatOptions.Set(fotHTMLEmbedImages, on); }
    QString cmdExternalCSS() const { return UseExternalCSS ? ExternalCSSFile : QString(); }
    void SetCmdExternalCSS(const QString& file);

    // Which wizard pages apply.
    bool wizardSelectPST() const { return m_convertType == mctPST; }
    bool wizardSelectMBox() const { return m_convertType == mctMBox; }
    bool wizardShowFile() const;
    bool wizardSelectFolder() const;
    bool wizardShowCSS() const;
    bool wizardShowComment() const;
    bool wizardShowDocCombineOptions() const;
    bool wizardShowTemplate() const;
    bool wizardShowFields() const { return !IsMailFormat() || m_convertType == mctVCard; }
    bool wizardShowAttachments() const { return m_convertType != mctVCard; }

    // Completes Destination before a run: one output file for PST and MBox,
    // the folder for vCards of one source, and for one source message the
    // name from the template (the message is asked for through loadMessage).
    // False when a single-message run gets no message.
    bool InitDestination(const std::function<std::shared_ptr<mail::IMailMessage>()>& loadMessage,
        const QString& sourceFileName);
    int DestinationFileIndex() const { return m_destinationFileIndex; }
    void NextDestinationFile() { ++m_destinationFileIndex; }

    // The built-in style sheet with the paper width filled in.
    QString GetDefaultCSS() const;

    // The stored options: every published property that is not derived,
    // under its own name, in declared order.
    void Save(core::TSettingsStore& store, const QString& section) const;
    void Load(const core::TSettingsStore& store, const QString& section);
    QStringList StoredNames() const;

    // The command-line keys of the cmd* options (the name without "cmd").
    static QList<core::TCommandKey> CommandKeys();
    void ApplyCommandLine(const core::TCommandLine& commandLine);

    // The last running number a run used; kept in the settings store
    // (section "Settings", key "LastProcessedNumber").
    int LastProcessedNumber() const { return m_lastProcessedNumber; }
    void SetLastProcessedNumber(int number);
    // The running number of the message at that index of a run.
    int RunningNumber(int index) const;

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
    std::vector<TPropertyInfo> Properties();

    TMailConvertType m_convertType = mctHTML;
    QString m_extension = QStringLiteral("html");
    int m_destinationFileIndex = 0;
    QString m_fileNameTemplate = QStringLiteral("[nn]. [date] - [subject]");
    QString m_attachNameTemplate;
    mutable std::unique_ptr<TMailTemplate> m_fileNameParsed;
    mutable std::unique_ptr<TMailTemplate> m_attachNameParsed;
    int m_lastProcessedNumber = 1;
};

// The page tessaly-inspect --html prints: the message rendered with the
// default options as one self-contained document (pictures as data URLs,
// since nothing is written beside it), made safe to open.
QString StandaloneHtmlPage(const mail::IMailMessage& message, bool remotePictures = false);

// A page made for a file of its own by the HTML writers.
struct TPageOptions {
    bool RemotePictures = false;
    // The message's pictures inside the page as data URLs; off, each picture
    // is where the task says it is.
    bool EmbedPictures = true;
    // The attachment list links each attachment the task says was saved.
    bool LinkAttachments = false;
    // Where attachments and pictures are; none: nothing is anywhere.
    const mail::IMailHTMLTask* Task = nullptr;
};
QString StandaloneHtmlPage(const mail::IMailMessage& message, const TPageOptions& options);

} // namespace tessaly::tasks
