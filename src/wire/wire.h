#pragma once

#include <QtGlobal>

/// The frames on the bus, message by message: the fields in the 29-bit identifier and in the
/// payload, then sizes and codes. Numbers in payloads are little-endian; a payload's fields are
/// byte offsets. Receiver and service tool share nothing else.
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

// ---- Every identifier
inline constexpr Field protocolType{26, 3};    ///< selects the layout of the bits below
inline constexpr Field sourceNode{21, 5};      ///< node that sent the frame
inline constexpr Field destinationNode{16, 5}; ///< node that the frame is for
inline constexpr Field responseNumber{0, 10};  ///< result code, in a P3 or P6 response

inline constexpr quint32 protocolP3 = 3; ///< simple single-frame messages
inline constexpr quint32 protocolP5 = 5; ///< configuration file messages, not handled
inline constexpr quint32 protocolP6 = 6; ///< multipacket file transfer

inline constexpr quint32 nodeShipwright = 24;  ///< the service tool
inline constexpr quint32 nodeDockhand = 26;    ///< the receiver
inline constexpr quint32 nodeDockhandAlt = 14; ///< second destination that the receiver answers to

inline constexpr quint32 resultSuccess = 0;   ///< accepted
inline constexpr quint32 resultFailure = 186; ///< P3 command failed, or P6 CRC mismatch

/// Packs the three fields. This and all functions based on it mask every argument to its field.
constexpr quint32 nodesId(quint32 protocol, quint32 src, quint32 dest)
{
    return protocolType.pack(protocol) | sourceNode.pack(src) | destinationNode.pack(dest);
}

/// Identifiers of simple single-frame messages.
namespace P3 {
inline constexpr Field response{14, 1};       ///< 1 in a response, 0 in a command or an event
inline constexpr Field slot{11, 2};           ///< the same in a command and its response
inline constexpr Field interfaceNumber{6, 4}; ///< interface of a command
inline constexpr Field operation{0, 6};       ///< operation of a command
inline constexpr Field eventNumber{0, 14};    ///< number of an event

inline constexpr quint32 interfaceShipwright = 11; ///< the only interface the receiver serves

constexpr quint32 commandId(quint32 src, quint32 dest, quint32 slotNum, quint32 interfaceNum,
                            quint32 operationNum)
{
    return nodesId(protocolP3, src, dest) | slot.pack(slotNum) | interfaceNumber.pack(interfaceNum)
        | operation.pack(operationNum);
}

constexpr quint32 responseId(quint32 src, quint32 dest, quint32 slotNum, quint32 responseNum)
{
    return nodesId(protocolP3, src, dest) | response.pack(1) | slot.pack(slotNum)
        | responseNumber.pack(responseNum);
}

constexpr quint32 eventId(quint32 src, quint32 dest, quint32 eventNum)
{
    return nodesId(protocolP3, src, dest) | eventNumber.pack(eventNum);
}
} // namespace P3

namespace StartConfiguration {
inline constexpr quint32 operation = 0;
inline constexpr char request[] = "A55A";  ///< hexadecimal; the command's payload begins with it
inline constexpr char response[] = "5AA5"; ///< hexadecimal; payload of the success response
} // namespace StartConfiguration

namespace SetDateTime {
inline constexpr qsizetype year = 0;   ///< years since epoch
inline constexpr qsizetype month = 1;  ///< 1 to 12
inline constexpr qsizetype day = 2;    ///< day of the month, from 1
inline constexpr qsizetype hour = 3;   ///< UTC
inline constexpr qsizetype minute = 4; ///< 0 to 59
inline constexpr qsizetype second = 5; ///< 0 to 59

inline constexpr qsizetype size = 6; ///< exact
inline constexpr int epoch = 2000;   ///< year of value 0
inline constexpr quint32 operation = 1;
} // namespace SetDateTime

/// The first bytes of the serial number.
namespace SetSerial {
inline constexpr qsizetype length = 0; ///< of the whole text in bytes, 8 bits
inline constexpr qsizetype text = 1;   ///< first bytes of the text, UTF-8

inline constexpr qsizetype textMax = 7; ///< bytes of the text in this frame
inline constexpr quint32 operation = 2;
} // namespace SetSerial

/// The serial number's remaining bytes, from byte 0.
namespace SetSerialExt {
inline constexpr quint32 operation = 3;
} // namespace SetSerialExt

namespace EndConfiguration {
inline constexpr quint32 operation = 4;
} // namespace EndConfiguration

/// Identifiers of the multipacket file transfer, and what its messages share.
namespace P6 {
inline constexpr Field type{12, 4};            ///< message type
inline constexpr Field commandResponse{10, 1}; ///< 0 in everything sent

inline constexpr Field versionField{2, 6}; ///< the protocol's version, in a payload byte
inline constexpr quint32 version = 2;      ///< the only version of the protocol
inline constexpr qsizetype crcSize = 4;    ///< a CRC-32, the whole payload of its message

constexpr quint32 messageId(quint32 src, quint32 dest, quint32 messageType, quint32 cmdResp,
                            quint32 responseNum)
{
    return nodesId(protocolP6, src, dest) | type.pack(messageType) | commandResponse.pack(cmdResp)
        | responseNumber.pack(responseNum);
}
} // namespace P6

/// Announces a file and asks for the receiver parameters.
namespace TransferInfo {
inline constexpr qsizetype fileType = 0; ///< one of FileType, 8 bits
inline constexpr qsizetype version = 1;  ///< the byte that holds P6::versionField
inline constexpr qsizetype fileSize = 2; ///< in bytes, 32 bits

inline constexpr qsizetype minSize = 6; ///< more bytes are ignored
inline constexpr quint32 type = 0;
inline constexpr quint32 rejected = 29; ///< result: payload too short, or another version
} // namespace TransferInfo

/// The receiver parameters.
namespace TransferInfoResponse {
inline constexpr qsizetype flags = 0;      ///< P6::versionField, flag, frameLimitHighField
inline constexpr qsizetype frameLimit = 1; ///< low 8 bits of the limit
inline constexpr qsizetype parameter1 = 2; ///< 16 bits
inline constexpr qsizetype parameter2 = 4; ///< 16 bits
inline constexpr qsizetype parameter3 = 6; ///< 16 bits

inline constexpr int flagShift = 1;               ///< of the receiver flag in flags, not masked
inline constexpr Field frameLimitHighField{0, 1}; ///< bit 8 of the limit, in flags
inline constexpr qsizetype size = 8;              ///< exact
} // namespace TransferInfoResponse

/// Opens the file.
namespace InitiateTransfer {
using TransferInfo::fileType;
using TransferInfo::version;
inline constexpr qsizetype numberOfRecords = 4; ///< 32 bits

inline constexpr qsizetype size = 8;         ///< exact
inline constexpr qsizetype responseSize = 8; ///< all zeros
inline constexpr quint32 type = 1;
inline constexpr quint32 rejected = 30; ///< result: another size or version
} // namespace InitiateTransfer

/// Opens a record; not answered.
namespace RecordStart {
inline constexpr qsizetype framesToFollow = 0; ///< number of data frames, 8 bits
inline constexpr qsizetype recordNumber = 1;   ///< number of the record, from 0, 32 bits

inline constexpr qsizetype size = 5;       ///< exact
inline constexpr qsizetype maxFrames = 64; ///< the most that DataFrame::frameNumber can count
inline constexpr quint32 type = 2;
} // namespace RecordStart

/// Up to 8 bytes of the file; not answered.
namespace DataFrame {
inline constexpr Field frameNumber{4, 6}; ///< in the identifier: place in the record, from 0

inline constexpr qsizetype size = 8; ///< of a full frame
inline constexpr quint32 type = 15;

constexpr quint32 messageId(quint32 src, quint32 dest, quint32 frameNum)
{
    return nodesId(protocolP6, src, dest) | P6::type.pack(type) | frameNumber.pack(frameNum);
}
} // namespace DataFrame

/// CRC-32 of the record, P6::crcSize bytes.
namespace RecordEnd {
inline constexpr qsizetype responseSize = 1;
inline constexpr char accepted = 0x00; ///< response: the CRC matched
inline constexpr char rejected = 0x01; ///< response: the CRC differed
inline constexpr quint32 type = 3;
} // namespace RecordEnd

/// CRC-32 of the file, P6::crcSize bytes; the response has the receiver's.
namespace TransferComplete {
inline constexpr quint32 type = 4;
} // namespace TransferComplete

/// Codes of the file types.
namespace FileType {
inline constexpr quint32 configuration = 0; ///< system configuration
inline constexpr quint32 menu = 1;          ///< menu archive
inline constexpr quint32 generic = 2;       ///< generic log file
inline constexpr quint32 package = 3;       ///< software package
} // namespace FileType

} // namespace Wire
