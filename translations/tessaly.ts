<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1">
<context>
    <name>CommandLineExport</name>
    <message>
        <location filename="../tasks/CommandLineExport.cpp" line="+81"/>
        <source>Folder the export writes to</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Messages to export, as &quot;sender=..,rcpt=..,subject=..,body=..,attach=include&quot;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Messages converted at once (default: one per core; 1 for one after another)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Keep the source&apos;s folders: below the destination, or inside the data file</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Write a JSON report of the run to FILE</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Finish a run into the same destination that was stopped: messages it completed are not written again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Paper of PDF output: a4 (the default), a3, a5, letter or legal</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>PDF output in landscape</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+12"/>
        <source>HTML output keeps pictures from other hosts (opening the page then asks those hosts for them)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+257"/>
        <source>Can not write the report %1: %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-213"/>
        <source>-jobs takes a number from 1 to 256, not &quot;%1&quot;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-116"/>
        <source>Can not read the list %1: %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+11"/>
        <source>The list %1 names no data file</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+27"/>
        <source>Output format: eml (a file per message, the default), msg (an Outlook .msg file per message), html (a web page per message), xhtml (an XHTML page per message), pdf (a PDF per message), txt (a text file per message), mbox (one mbox file, or one per folder with -KeepFolders), vcf (a vCard per contact), ics (an iCalendar file per meeting or appointment) or pst (one data file). In a mail format, contacts are written as vCards and calendar items as iCalendar files</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+13"/>
        <source>A text file naming data files, one per line, exported in this run as if each were given with -pst</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+10"/>
        <source>PDF output: one PDF for the whole run, each message from a new page</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>HTML output saves the pictures in a folder beside each page instead of inside it</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>vCard version of contacts: 3 (the default) or 4</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Write contacts and calendar items in the chosen format too, not as vCard and iCalendar files</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+37"/>
        <source>unknown format &quot;%1&quot;: eml, msg, html, xhtml, pdf, txt, mbox, vcf, ics and pst are the formats offered</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+14"/>
        <source>no destination: give -dest FOLDER</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+14"/>
        <source>-Combine goes with -format pdf</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+8"/>
        <source>-vCard takes 3 or 4, not &quot;%1&quot;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+14"/>
        <source>unknown paper &quot;%1&quot;: a4, a3, a5, letter and legal are the sizes offered</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+20"/>
        <source>this program has no writer of the format &quot;%1&quot;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+15"/>
        <source>-resume goes with formats that write a file per message, not with %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+19"/>
        <source>%1 does not exist</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+21"/>
        <source>Outlook is running. Please, close Outlook</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Can not find default outlook data file</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+15"/>
        <source>Can not load outlook data file - </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+8"/>
        <source>no folder &quot;%1&quot; in %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+32"/>
        <source>%1 messages were complete from the run before</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+5"/>
        <source>%1 messages: %2 written, %3 skipped by the filter, %4 failed; in %5</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location filename="../tasks/MailOtherTasks.cpp" line="+289"/>
        <source>PDF files are printed by the window program, which is missing</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+4"/>
        <source>the page could not be printed</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>InfoTool</name>
    <message>
        <location filename="../app/InfoToolMain.cpp" line="+28"/>
        <source>Usage: tessaly-inspect FILE... [--json] [--messages]
       tessaly-inspect --html [--remote-pictures] FILE [FOLDER/PATH:INDEX]
Prints the type and folder tree of each PST or OST file, and the fields of
each .msg, .eml, .emlx, .mim or .vcf file.
  --messages  every item of every folder with its fields
  --json      JSON: one object for one file, an array of them for several
  --html      the HTML rendering of a message file, or of the item of a data
              file at INDEX (from 0) in the folder named by its path of folder
              names below the root, such as &quot;Inbox:0&quot; or &quot;Top/Sent Items:3&quot;;
              safe to open: no scripts, handlers, frames or objects, and
              nothing loaded from another host
  --remote-pictures
              with --html: pictures from http and https stay and load
</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+28"/>
        <source>Can not open %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Name the item as FOLDER/PATH:INDEX</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+7"/>
        <source>No folder %1 in %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+6"/>
        <source>No item %1 in that folder</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+11"/>
        <source>No message in %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+84"/>
        <source>Unknown option %1</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>MailReport</name>
    <message>
        <location filename="../mail/MailReport.cpp" line="+107"/>
        <source>File not found: %1</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>PSTReport</name>
    <message>
        <location filename="../pst/PSTReport.cpp" line="+207"/>
        <source>Can not open %1: it is not an Outlook data file, or it is damaged</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Can not read the folders of %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+31"/>
        <source>File not found: %1</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>Rtf</name>
    <message>
        <location filename="../core/Rtf.cpp" line="+56"/>
        <source>Compressed RTF is shorter than its header</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+9"/>
        <source>Compressed RTF has a wrong size</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Compressed RTF claims an implausible size</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+7"/>
        <source>Compressed RTF has an unknown type</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Compressed RTF fails its CRC check</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+23"/>
        <source>Compressed RTF ends inside a reference</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+15"/>
        <source>Compressed RTF expands beyond its size</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>StartUp</name>
    <message>
        <location filename="../app/StartUp.cpp" line="+103"/>
        <source>tessaly: no display to show the window on (set DISPLAY or WAYLAND_DISPLAY)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+36"/>
        <source>tessaly: the window program %1 is missing beside %2; reinstall Tessaly</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+6"/>
        <source>tessaly: cannot start %1: %2</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TAppConfig</name>
    <message>
        <location filename="../core/AppConfig.cpp" line="+59"/>
        <source>Invalid configuration: %1 (line %2)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+17"/>
        <source>The built-in configuration is missing</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TCheckRangeDialog</name>
    <message>
        <location filename="../app/MailBrowseFrame.cpp" line="+612"/>
        <source>Check range</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Check from:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Check to:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Uncheck</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>&amp;OK</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>&amp;Cancel</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TCommandLine</name>
    <message>
        <location filename="../core/CommandLine.cpp" line="+145"/>
        <source>a key without a name: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>unknown key -%1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+5"/>
        <source>the key -%1 takes true or false, not &quot;%2&quot;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+4"/>
        <source>the key -%1 needs a value</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+83"/>
        <source>Usage: tessaly [FILE...] [-key value] [-switch]
Keys may also be written --key, --key=value or -switch=false.

Keys:
</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+9"/>
        <source>Keys:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Error in command line</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>No source or destination</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Exception</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Internal error. Please report it to the developers of Tessaly</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Invalid source files</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+12"/>
        <source>Error:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Command line:</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TCrashReporter</name>
    <message>
        <location filename="../core/CrashReporter.cpp" line="+106"/>
        <source>unknown exception</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+32"/>
        <source>An unexpected error occurred:
%1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>

The details were written to %1. Please send that file to the developers.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>

The details could not be written to %1.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>%1 error</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TCustomTask</name>
    <message>
        <location filename="../tasks/CustomTask.cpp" line="+75"/>
        <source>Error converting message #%1 (%2): %3</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>no message</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+154"/>
        <source>Can not flush the written files to disk</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TExportDialog</name>
    <message>
        <location filename="../app/ExportDialog.cpp" line="+111"/>
        <location line="+329"/>
        <source>Export messages</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-253"/>
        <source>Destination</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Browse...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Export to file</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Export to folder</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+138"/>
        <source>File:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Folder:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-129"/>
        <source>File names</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-165"/>
        <source>EML</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source>EML: an .eml file per message</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>MSG</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source>MSG: an Outlook .msg file per message</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>MBOX</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source>MBOX: one mailbox file</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>HTML</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source>HTML: a web page per message</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>XHTML</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source>XHTML: an XHTML page per message</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>PDF</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source>PDF: a PDF per message</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Text</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source>Text: a text file per message</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>vCard</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source>vCard: a .vcf file per contact</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>iCalendar</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>iCalendar: an .ics file per meeting or appointment</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>PST</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source>PST: one Outlook data file</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+63"/>
        <source>Format</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+10"/>
        <source>PDF pages cannot be printed here: export to PDF with the command line (tessaly -format pdf)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Format:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Keep pictures from other hosts</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Opening the output then asks those hosts for the pictures; off, nothing leaves the page</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Save pictures beside the page</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>In a folder next to each page rather than inside it</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+14"/>
        <source>Landscape</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Paper:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>One PDF for the whole run</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Text made from the HTML body</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+8"/>
        <source>vCard version:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Contacts as vCard, meetings as iCalendar</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+27"/>
        <source>%1 files (*.%2)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+15"/>
        <source>Macros: [subject] [sender] [sender.name] [sender.email] [recipient] [date] [date:yyyy-mm-dd] [n] [nn] [ifattach] [body]</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Template:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Example:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Options</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Save attachments beside the messages</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Keep the folder structure</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Folder levels left out from the top</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>from level</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Give each file the date of its message</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Filter</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+6"/>
        <source>All messages</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source>With attachments</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source>Without attachments</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Sender contains:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Recipient contains:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Subject contains:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Attachments:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+9"/>
        <source>&amp;Export</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+97"/>
        <source>(no name: the template gives nothing)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+13"/>
        <source>Choose where the messages go.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+5"/>
        <source>This version of Tessaly cannot write %1 yet. Choose another format.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+62"/>
        <source>Exporting...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source>Cancel</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+12"/>
        <source>%1 of %2: %3</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+20"/>
        <source>Exported: %1
Skipped by the filter: %2
Failed: %3</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+5"/>
        <source>
The export was cancelled after %1 of %2 messages.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TFileMailMsgRequest</name>
    <message>
        <location filename="../mail/FileMailMsg.cpp" line="+42"/>
        <location line="+3"/>
        <source>damaged message file</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <location line="+51"/>
        <source>not a message file</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-11"/>
        <source>not a message file (the file is empty)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+18"/>
        <source>Can not determine format of file </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+13"/>
        <source>Can not read file %1: %2</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TMailBrowseFrame</name>
    <message>
        <location filename="../app/MailBrowseFrame.cpp" line="-555"/>
        <location line="+48"/>
        <source>Check</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-47"/>
        <source>Uncheck</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Check All</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Uncheck all</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Check range...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Check by mask...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Restore last selection</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Move up</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source>Move up (Ctrl+Up)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Move down</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source>Move down (Ctrl+Down)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+11"/>
        <source>Search...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+34"/>
        <source>Check to here</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+11"/>
        <source>Open in new window</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+243"/>
        <source>%1 of %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+6"/>
        <source>Sorting…</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Filtering…</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TMailEMLTask</name>
    <message>
        <location filename="../tasks/MailEMLTask.cpp" line="+39"/>
        <source>Can not write %1: %2</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TMailHTMLTask</name>
    <message>
        <location filename="../tasks/MailOtherTasks.cpp" line="-60"/>
        <source>Can not save the picture %1: %2</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TMailInfoFrame</name>
    <message>
        <location filename="../app/MailInfoFrame.cpp" line="+244"/>
        <source>Sent:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>To:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+32"/>
        <source>&lt;No mail to show&gt;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+46"/>
        <source>the attachment&apos;s data cannot be read</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+27"/>
        <source>Attached message</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+70"/>
        <source>the page could not be loaded for printing</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+15"/>
        <source>the page could not be printed</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+12"/>
        <source>No application is set to open %1. Save it instead?</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+45"/>
        <source>HTML</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+12"/>
        <source>Text</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Headers</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+6"/>
        <source>Find:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+13"/>
        <source>Previous match (Shift+Enter)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Next match (Enter)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Close (Esc)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+15"/>
        <source>&amp;Print...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Save as PDF...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Save all attachments...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Find in message...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+12"/>
        <source>Save</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Open</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+36"/>
        <location line="+9"/>
        <location line="+19"/>
        <source>Not found</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-20"/>
        <source>%1 of %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+136"/>
        <source>Could not make a folder for opened files below %1.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+9"/>
        <location line="+122"/>
        <source>Could not write %1: %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-106"/>
        <source>Save all attachments into</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+16"/>
        <source>%1: %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Could not write every attachment into %1:
%2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+31"/>
        <source>Save as PDF</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>message</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Could not write %1.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+14"/>
        <source>Print message</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+8"/>
        <source>The message could not be printed.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+11"/>
        <source>Save attach as</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TMailListModel</name>
    <message>
        <location filename="../app/MailListModel.cpp" line="+96"/>
        <location line="+9"/>
        <source>Subject</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-9"/>
        <source>Location</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Start</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source>End</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Organizer</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Name</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source>Company</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Job title</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source>E-mail</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Business phone</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source>Mobile phone</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Attachment</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source>From</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Received</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Sent</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+0"/>
        <source>Size</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>To</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TMailMainForm</name>
    <message>
        <location filename="../app/PSTMainForm.cpp" line="+62"/>
        <source>Tessaly</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Mail Browse</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Contacts</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+15"/>
        <source>&amp;File</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>&amp;View</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Search the list</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+6"/>
        <source>Open message in new window</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Next pane</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Previous pane</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>&amp;Help</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>&amp;About Tessaly...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+17"/>
        <source>%1 checked</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+94"/>
        <source>About Tessaly</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>&lt;h3&gt;Tessaly %1&lt;/h3&gt;&lt;p&gt;A viewer for Outlook data files (PST, OST) and single messages (MSG, EML).&lt;/p&gt;&lt;p&gt;Every file is opened read only.&lt;/p&gt;</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TMailMsgHTML</name>
    <message>
        <location filename="../mail/MailMsgHTML.cpp" line="+219"/>
        <source>From</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+63"/>
        <source>Attachments</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+15"/>
        <source>Required</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Optional</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Resource</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <location line="+137"/>
        <source>Subject</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-135"/>
        <source>Location</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+5"/>
        <source>When</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+42"/>
        <location line="+43"/>
        <source>Name</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-42"/>
        <source>Company</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Job title</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Department</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+5"/>
        <source>E-mail</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Business phone</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Home phone</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Mobile phone</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Business fax</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Business address</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Address</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Birthday</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Web page</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Notes</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+57"/>
        <source>To</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>CC</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>BCC</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Date</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+17"/>
        <source>Headers</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TMailPSTTask</name>
    <message>
        <location filename="../tasks/MailPSTTask.cpp" line="+120"/>
        <source>Nothing written: %1 is not to be replaced</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+82"/>
        <source>%1 messages written to %2</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TMailProperties</name>
    <message>
        <location filename="../tasks/MailProperties.cpp" line="+555"/>
        <source>Show the sender</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Show the recipients</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Show the CC recipients</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Show the BCC recipients</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Show the date</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Show the subject</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Show the body</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Show the internet headers</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Show dates in UTC</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Save attachments beside the output</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>List attachments in the header</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Unpack attached archives</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Show attached images</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Fit shown images to the page</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Convert attached messages</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Convert attached messages to files of their own</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Leave RE:, FW: and the like out of file names</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>File names that SharePoint accepts</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+10"/>
        <source>Number outputs on from the last run</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Put images into HTML output as data URLs</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Style sheet for HTML output</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TMailStringList</name>
    <message>
        <location filename="../mail/MailStringList.cpp" line="+89"/>
        <source>Can not read file %1: %2</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TMailTask</name>
    <message>
        <location filename="../tasks/MailTask.cpp" line="+202"/>
        <source>Originals are never deleted: Tessaly opens every file read only.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Archives are saved as they are, not unpacked.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+7"/>
        <source>%1 contacts written as vCard files (-OneFormat keeps them in the chosen format)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>%1 calendar items written as iCalendar files (-OneFormat keeps them in the chosen format)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+105"/>
        <source>Nothing written to %1: %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>another file took its name</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+60"/>
        <source>The message could not be read</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+71"/>
        <location line="+9"/>
        <source>Can not create the folder %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+104"/>
        <source>Can not convert &quot;%1&quot;</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Can not save the attachment %1: %2</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TMessageForm</name>
    <message>
        <location filename="../app/PSTMainForm.cpp" line="+724"/>
        <source>&amp;File</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+6"/>
        <source>&amp;Close</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>&amp;View</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+7"/>
        <source>%1 - Tessaly</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+27"/>
        <source>Could not read %1%2. Check that it is a .msg, .eml or .vcf file.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TMsgWriter</name>
    <message>
        <location filename="../mail/MsgWriter.cpp" line="+65"/>
        <source>too many named properties</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+43"/>
        <source>the compound file could not be made</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+22"/>
        <source>the compound file could not be written</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+9"/>
        <source>the storage %1 could not be made</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+14"/>
        <source>the stream %1 could not be made</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+41"/>
        <source>a value is too large for a message file</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+12"/>
        <source>attached messages are nested too deeply</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+56"/>
        <source>no message to write</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TPSTFile</name>
    <message>
        <location filename="../pst/PSTFile.cpp" line="+104"/>
        <source>The file does not exist.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>This is a folder, not a file.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Permission denied: the file cannot be read.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The file is empty.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>This is not an Outlook data file (.pst or .ost).</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The file&apos;s header is damaged.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The system could not open the file.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>The file is damaged: its folders cannot be read.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TPSTFolder</name>
    <message>
        <location filename="../pst/PSTFolder.cpp" line="+73"/>
        <source>Folders nested deeper than %1 levels, or inside themselves, are left out</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TPSTMainForm</name>
    <message>
        <location filename="../app/PSTMainForm.cpp" line="-737"/>
        <source>Tessaly</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+21"/>
        <source>&amp;Open Outlook data file...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Find Outlook files</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>&amp;Export...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Export the ticked messages, or the selected folder, to files of the format chosen (Ctrl+E)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+7"/>
        <source>Close Outlook data file</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>E&amp;xit</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Main</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+13"/>
        <source>File language</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <location line="+350"/>
        <source>Disable</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-342"/>
        <source>Remove</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+55"/>
        <source>Please, close Outlook</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+155"/>
        <source>Open Outlook data file</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Outlook data files (*.pst,*.ost)|*.pst;*.ost|Any files (*.*)|*.*</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+90"/>
        <source>Central European (1250)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Cyrillic (1251)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Western European (1252)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Greek (1253)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Turkish (1254)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Hebrew (1255)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Arabic (1256)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Baltic (1257)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Vietnamese (1258)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Thai (874)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Japanese (932)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Chinese Simplified (936)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Korean (949)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Chinese Traditional (950)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Cyrillic DOS (866)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>US DOS (437)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+25"/>
        <source>Enable</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+50"/>
        <source>%1 - %2 - Tessaly</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>%1 - Tessaly</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+40"/>
        <source>%1 file(s), %2 folder(s)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+6"/>
        <source>%1 item(s)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Open an Outlook data file with File &gt; Open (Ctrl+O), or drop one here</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Loading %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>%1 file(s) loading</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+12"/>
        <source>Open PST file</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>PST files (*.pst)|*.pst|OST files (*.ost)|*.ost|All files (*.*)|*.*</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+119"/>
        <location line="+19"/>
        <source>Export messages</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-18"/>
        <source>Nothing to export: tick messages in the list, or select a folder with messages.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+12"/>
        <source>This version of Tessaly cannot write that format yet.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+8"/>
        <source>Written to %1</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TPSTProjectData</name>
    <message>
        <location filename="../pst/PSTProjectData.cpp" line="+140"/>
        <source>Outlook is running. Please, close Outlook</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+5"/>
        <source>Can not find default outlook data file</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+3"/>
        <source>Can not load outlook data file - </source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TPSTSearchDialog</name>
    <message>
        <location filename="../app/PSTSearchDialog.cpp" line="+30"/>
        <source>Search Outlook data files</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+9"/>
        <source>Drives</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+12"/>
        <source>Found outlook data files</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+11"/>
        <source>Check all</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>Uncheck all</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+16"/>
        <source>Start search</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Stop</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+1"/>
        <source>&amp;Close</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+20"/>
        <source>Search complete</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+4"/>
        <source>Home (%1)</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TPSTTree</name>
    <message>
        <location filename="../app/PSTTree.cpp" line="+79"/>
        <source>Loading %1...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Error open %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+2"/>
        <source>Disabled: %1</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TResumeManifest</name>
    <message>
        <location filename="../tasks/ResumeManifest.cpp" line="+79"/>
        <source>Can not write %1: %2</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TStagedFile</name>
    <message>
        <location filename="../platform/StagedFile.cpp" line="+39"/>
        <source>Can not create a file in %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+47"/>
        <location line="+17"/>
        <source>Can not name the file %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="-11"/>
        <source>Can not replace %1</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>WindowStart</name>
    <message>
        <location filename="../app/WindowStart.cpp" line="+35"/>
        <source>tessaly: running as root, so the message view runs without its sandbox</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+35"/>
        <source>pages are printed only while the window program runs</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <location line="+33"/>
        <source>the window did not take the page for printing</source>
        <translation type="unfinished"></translation>
    </message>
</context>
</TS>
