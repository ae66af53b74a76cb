#pragma once

// MAPI property ids and types ([MS-OXPROPS], [MS-OXCDATA] 2.11.1): the one
// table of them for the whole program, used by the data-file reader and
// writer and by the .msg reader.

#include <QUuid>
#include <cstdint>

namespace tessaly::pstfile {

// Property types.
enum TPropType : uint16_t {
    ptUnspecified = 0x0000,
    ptNull = 0x0001,
    ptShort = 0x0002,
    ptLong = 0x0003,
    ptFloat = 0x0004,
    ptDouble = 0x0005,
    ptCurrency = 0x0006,
    ptAppTime = 0x0007,
    ptError = 0x000A,
    ptBoolean = 0x000B,
    ptObject = 0x000D,
    ptInt64 = 0x0014,
    ptString8 = 0x001E,
    ptUnicode = 0x001F,
    ptSysTime = 0x0040,
    ptClsid = 0x0048,
    ptServerId = 0x00FB,
    ptRestriction = 0x00FD,
    ptRuleAction = 0x00FE,
    ptBinary = 0x0102,
    ptMultiFlag = 0x1000, // or-ed into a type: several values
};

constexpr uint32_t Tag(uint16_t id, uint16_t type) { return (uint32_t(id) << 16) | type; }
constexpr uint16_t TagId(uint32_t tag) { return uint16_t(tag >> 16); }
constexpr uint16_t TagType(uint32_t tag) { return uint16_t(tag & 0xFFFF); }

// Bytes a value of a fixed-size type takes; 0 for variable-size types.
constexpr int FixedSize(uint16_t type)
{
    switch (type) {
    case ptShort: return 2;
    case ptLong: case ptFloat: case ptError: return 4;
    case ptBoolean: return 1;
    case ptDouble: case ptCurrency: case ptAppTime: case ptInt64: case ptSysTime: return 8;
    default: return 0;
    }
}

// Property ids.
namespace pid {
constexpr uint16_t
    // message
    Importance = 0x0017, MessageClass = 0x001A, Priority = 0x0026, Sensitivity = 0x0036, Subject = 0x0037,
    ClientSubmitTime = 0x0039, SentRepresentingName = 0x0042, StartDate = 0x0060, EndDate = 0x0061,
    SentRepresentingAddrType = 0x0064,
    SentRepresentingEmail = 0x0065, ConversationTopic = 0x0070, TransportHeaders = 0x007D,
    SenderName = 0x0C1A, SenderAddrType = 0x0C1E, SenderEmail = 0x0C1F, RecipientType = 0x0C15,
    DisplayBcc = 0x0E02, DisplayCc = 0x0E03, DisplayTo = 0x0E04, DeliveryTime = 0x0E06, MessageFlags = 0x0E07,
    MessageSize = 0x0E08, Responsibility = 0x0E0F, MessageStatus = 0x0E17, HasAttach = 0x0E1B, RtfInSync = 0x0E1F,
    AttachSize = 0x0E20, RecordKey = 0x0FF9, ObjectType = 0x0FFE, Body = 0x1000, RtfCompressed = 0x1009,
    Html = 0x1013, InternetMessageId = 0x1035,
    // common
    RowId = 0x3000, DisplayName = 0x3001, AddrType = 0x3002, EmailAddress = 0x3003, CreationTime = 0x3007,
    LastModificationTime = 0x3008,
    // store
    IpmSubtreeEntryId = 0x35E0, IpmOutboxEntryId = 0x35E2, IpmWastebasketEntryId = 0x35E3,
    IpmSentMailEntryId = 0x35E4, ValidFolderMask = 0x35DF, IpmDraftsEntryId = 0x36D7, PstPassword = 0x67FF,
    // the name-to-id map ([MS-PST] 2.4.7)
    NameidBucketCount = 0x0001, NameidStreamGuid = 0x0002, NameidStreamEntry = 0x0003, NameidStreamString = 0x0004,
    NameidBucketBase = 0x1000,
    // folder
    FolderType = 0x3601, ContentCount = 0x3602, ContentUnread = 0x3603, Subfolders = 0x360A,
    ContainerClass = 0x3613,
    // attachment
    AttachDataBin = 0x3701, AttachFilename = 0x3704, AttachMethod = 0x3705, AttachLongFilename = 0x3707,
    RenderingPosition = 0x370B, AttachMimeTag = 0x370E, AttachContentId = 0x3712, AttachContentLocation = 0x3713,
    // addresses
    DisplayType = 0x3900, SmtpAddress = 0x39FE,
    // contact
    Generation = 0x3A05, GivenName = 0x3A06, BusinessTelephone = 0x3A08, HomeTelephone = 0x3A09,
    Initials = 0x3A0A, Surname = 0x3A11, PostalAddress = 0x3A15, CompanyName = 0x3A16, Title = 0x3A17,
    DepartmentName = 0x3A18, OfficeLocation = 0x3A19, PrimaryTelephone = 0x3A1A, Business2Telephone = 0x3A1B,
    MobileTelephone = 0x3A1C, BusinessFax = 0x3A24, Country = 0x3A26, Locality = 0x3A27,
    CallbackTelephone = 0x3A02, DisplayNamePrefix = 0x3A45,
    // locale and charsets
    MessageLocaleId = 0x3FF1, MessageCodepage = 0x3FFD, InternetCodepage = 0x3FDE,
    SenderSmtpAddress = 0x5D01, SentRepresentingSmtpAddress = 0x5D02, RecipientDisplayName = 0x5FF6,
    // table rows
    LtpRowId = 0x67F2, LtpRowVer = 0x67F3;

// Named properties as the program addresses them: the numbers of their
// property sets ([MS-OXPROPS]), which the writer also uses as their ids.
// Files give them ids of their own through the name-to-id map.
constexpr uint16_t Email1DisplayName = 0x8080, Email1Address = 0x8083, Email2Address = 0x8093, Email3Address = 0x80A3,
                   InstantMessagingAddress = 0x8062, WorkAddress = 0x801B, Birthday = 0x80DE,
                   WebPage = 0x802B, Location = 0x8208, AppointmentStart = 0x820D, AppointmentEnd = 0x820E;
} // namespace pid

// Property sets of named properties ([MS-OXPROPS] 1.3.2).
inline QUuid PS_MAPI() { return {0x00020328, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46}; }
inline QUuid PSETID_Appointment() { return {0x00062002, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46}; }
inline QUuid PSETID_Address() { return {0x00062004, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46}; }
inline QUuid PS_PUBLIC_STRINGS() { return {0x00020329, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46}; }

// The set of one of the named properties above: the same number names
// other properties in other sets. A null id for any other number.
inline QUuid NamedPropertySet(uint16_t id)
{
    switch (id) {
    case pid::Email1DisplayName:
    case pid::Email1Address:
    case pid::Email2Address:
    case pid::Email3Address:
    case pid::InstantMessagingAddress:
    case pid::WorkAddress:
    case pid::Birthday:
    case pid::WebPage:
        return PSETID_Address();
    case pid::Location:
    case pid::AppointmentStart:
    case pid::AppointmentEnd:
        return PSETID_Appointment();
    default:
        return {};
    }
}

} // namespace tessaly::pstfile
