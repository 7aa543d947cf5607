#pragma once

#include <QtGlobal>

/// What goes over the wire: the fields of the 29-bit identifier and of the payloads, shared by
/// the receiver and its peers. Multi-byte numbers in payloads are little-endian.
namespace Wire {

/// A run of bits in an identifier or a payload byte.
struct Field
{
    quint32 shift; ///< position of the lowest bit
    quint32 width; ///< number of bits

    constexpr quint32 max() const { return (1u << width) - 1; }
    constexpr quint32 mask() const { return max() << shift; }
    /// \a value in its place; bits that do not fit the field are dropped.
    constexpr quint32 pack(quint32 value) const { return (value & max()) << shift; }
    /// The field's value in \a word.
    constexpr quint32 of(quint32 word) const { return (word >> shift) & max(); }
};

// ---- Identifier fields of every protocol
inline constexpr Field protocolType{26, 3};    ///< selects the layout of the bits below
inline constexpr Field sourceNode{21, 5};      ///< node that sent the frame
inline constexpr Field destinationNode{16, 5}; ///< node that the frame is for

// ---- Protocol types
inline constexpr quint32 protocolP3 = 3; ///< simple single-frame messages
inline constexpr quint32 protocolP5 = 5; ///< configuration file messages, not handled
inline constexpr quint32 protocolP6 = 6; ///< multipacket file transfer

// ---- Nodes
inline constexpr quint32 nodeShipwright = 24; ///< the service tool
inline constexpr quint32 nodeDockhand = 26;   ///< the receiver
/// second destination that the receiver answers to
inline constexpr quint32 nodeDockhandAlt = 14;

// ---- Result codes in a response's responseNumber
inline constexpr quint32 resultSuccess = 0; ///< accepted
/// Transfer Info too short or wrong version
inline constexpr quint32 resultTransferInfoRejected = 29;
/// Initiate Transfer of wrong size or version
inline constexpr quint32 resultInitTransferRejected = 30;
/// P3 command failed, or P6 CRC mismatch
inline constexpr quint32 resultFailure = 186;

// ---- P3 identifier fields
inline constexpr Field p3Response{14, 1};     ///< 1 in a response, 0 in a command or an event
inline constexpr Field p3Slot{11, 2};         ///< slot, the same in a command and its response
inline constexpr Field p3Interface{6, 4};     ///< interface of a command
inline constexpr Field p3Operation{0, 6};     ///< operation of a command
inline constexpr Field p3EventNumber{0, 14};  ///< number of an event
inline constexpr Field responseNumber{0, 10}; ///< result code of a P3 or P6 response

inline constexpr quint32 p3InterfaceShipwright = 11; ///< the only interface the receiver serves

// ---- P3 operations
/// start of configuration: a5 5a, answered 5a a5
inline constexpr quint32 p3StartConfig = 0;
inline constexpr quint32 p3SetDateTime = 1;      ///< set the clock
inline constexpr quint32 p3SetSerial = 2;        ///< serial number: its length and first bytes
inline constexpr quint32 p3SetSerialExt = 3;     ///< serial number: its remaining bytes
inline constexpr quint32 p3EndConfiguration = 4; ///< end of configuration

// ---- P3 payloads
inline constexpr char startConfigRequest[] = "A55A"; ///< hexadecimal prefix of a start command
/// hexadecimal payload of its success response
inline constexpr char startConfigReply[] = "5AA5";

inline constexpr qsizetype dateTimeSize = 6;   ///< set-date-time payload: one byte each of:
inline constexpr qsizetype dateTimeYear = 0;   ///< years since dateTimeEpoch
inline constexpr qsizetype dateTimeMonth = 1;  ///< month, 1 to 12
inline constexpr qsizetype dateTimeDay = 2;    ///< day of the month, from 1
inline constexpr qsizetype dateTimeHour = 3;   ///< hour, UTC
inline constexpr qsizetype dateTimeMinute = 4; ///< minute
inline constexpr qsizetype dateTimeSecond = 5; ///< second
inline constexpr int dateTimeEpoch = 2000;     ///< year of value 0

inline constexpr qsizetype serialLength = 0; ///< set-serial: total length in bytes
inline constexpr qsizetype serialText = 1;   ///< set-serial: first bytes of the text, UTF-8
/// bytes of the text in set-serial; the rest follows
inline constexpr qsizetype serialFirstFrameMax = 7;

// ---- P6 identifier fields
inline constexpr Field p6Type{12, 4};            ///< message type
inline constexpr Field p6CommandResponse{10, 1}; ///< command/response bit, 0 in everything sent
inline constexpr Field p6FrameNumber{4, 6};      ///< place of a Data Frame in its record, from 0

// ---- P6 message types
/// file type and size; asks for the receiver parameters
inline constexpr quint32 p6TransferInfo = 0;
/// file type and number of records; opens the file
inline constexpr quint32 p6InitTransfer = 1;
inline constexpr quint32 p6RecordStart = 2;      ///< opens a record; not answered
inline constexpr quint32 p6RecordEnd = 3;        ///< CRC-32 of the record
inline constexpr quint32 p6TransferComplete = 4; ///< CRC-32 of the file
inline constexpr quint32 p6DataFrame = 15;       ///< up to 8 bytes of the file; not answered

// ---- P6 payloads
inline constexpr qsizetype frameSize = 8; ///< bytes of a full data frame
/// payload of Record End, Transfer Complete and its response
inline constexpr qsizetype crcSize = 4;
/// most data frames of a record: p6FrameNumber has 6 bits
inline constexpr qsizetype recordFrames = 64;

/// version that Transfer Info and Initiate Transfer carry
inline constexpr quint32 protocolVersion = 2;
inline constexpr Field versionField{2, 6}; ///< the version in payload byte versionOffset

/// Transfer Info, Initiate Transfer: file type code
inline constexpr qsizetype fileTypeOffset = 0;
/// Transfer Info, Initiate Transfer: version
inline constexpr qsizetype versionOffset = 1;
/// Transfer Info: file size in bytes, 32 bits
inline constexpr qsizetype fileSizeOffset = 2;
/// Transfer Info: least size; more is ignored
inline constexpr qsizetype transferInfoMinSize = 6;
/// Initiate Transfer: number of records, 32 bits
inline constexpr qsizetype numberOfBlocksOffset = 4;
inline constexpr qsizetype initTransferSize = 8; ///< Initiate Transfer: exact size
/// Record Start: number of data frames, 8 bits
inline constexpr qsizetype framesToFollowOffset = 0;
/// Record Start: number of the record, 32 bits
inline constexpr qsizetype blockNumberOffset = 1;
inline constexpr qsizetype recordStartSize = 5; ///< Record Start: exact size
/// responses to Transfer Info and Initiate Transfer
inline constexpr qsizetype negotiationReplySize = 8;
/// Transfer Info response, byte 0: receiver flag, whole
inline constexpr int infoFlagShift = 1;
/// Transfer Info response, byte 0: bit 8 of the limit
inline constexpr Field infoFrameLimitHighField{0, 1};
/// Transfer Info response: version, flag, high bit
inline constexpr qsizetype infoFlagsOffset = 0;
/// Transfer Info response: low 8 bits of the limit
inline constexpr qsizetype infoFrameLimitOffset = 1;
/// Transfer Info response: parameter 1, 16 bits
inline constexpr qsizetype infoParam1Offset = 2;
/// Transfer Info response: parameter 2, 16 bits
inline constexpr qsizetype infoParam2Offset = 4;
/// Transfer Info response: parameter 3, 16 bits
inline constexpr qsizetype infoParam3Offset = 6;
inline constexpr qsizetype recordEndReplySize = 1; ///< Record End response
inline constexpr char recordAccepted = 0x00;       ///< Record End response: CRC matched
inline constexpr char recordRejected = 0x01;       ///< Record End response: CRC differed

// ---- File type codes
inline constexpr quint32 fileConfiguration = 0; ///< system configuration
inline constexpr quint32 fileMenu = 1;          ///< menu archive
inline constexpr quint32 fileGeneric = 2;       ///< generic log file
inline constexpr quint32 filePackage = 3;       ///< software package

// ---- Building an identifier: every argument is masked to its field
constexpr quint32 nodesId(quint32 protocol, quint32 src, quint32 dest)
{
    return protocolType.pack(protocol) | sourceNode.pack(src) | destinationNode.pack(dest);
}

constexpr quint32 p3CommandId(quint32 src, quint32 dest, quint32 slot, quint32 interfaceId,
                              quint32 opId)
{
    return nodesId(protocolP3, src, dest) | p3Slot.pack(slot) | p3Interface.pack(interfaceId)
        | p3Operation.pack(opId);
}

constexpr quint32 p3ResponseId(quint32 src, quint32 dest, quint32 slot, quint32 responseNum)
{
    return nodesId(protocolP3, src, dest) | p3Response.pack(1) | p3Slot.pack(slot)
        | responseNumber.pack(responseNum);
}

constexpr quint32 p3EventId(quint32 src, quint32 dest, quint32 eventNum)
{
    return nodesId(protocolP3, src, dest) | p3EventNumber.pack(eventNum);
}

constexpr quint32 p6Id(quint32 src, quint32 dest, quint32 type, quint32 cmdResp,
                       quint32 responseNum)
{
    return nodesId(protocolP6, src, dest) | p6Type.pack(type) | p6CommandResponse.pack(cmdResp)
        | responseNumber.pack(responseNum);
}

constexpr quint32 p6DataFrameId(quint32 src, quint32 dest, quint32 frameNumber)
{
    return nodesId(protocolP6, src, dest) | p6Type.pack(p6DataFrame)
        | p6FrameNumber.pack(frameNumber);
}

} // namespace Wire
