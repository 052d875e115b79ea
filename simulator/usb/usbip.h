#ifndef SIMULATOR_USB_USBIP_H
#define SIMULATOR_USB_USBIP_H

#include <cstddef>

#include <abstractionlibrary/types.h>

#include "common/bytes.h"

// The messages of USB/IP, a protocol that carries USB transfers over a stream. Numbers are big-endian. A connection
// begins with one management request; after an import follow submissions and their answers.
namespace VorelKestrel::Simulator::UsbIp {

constexpr AL::U16 kVersion = 0x0111;

constexpr AL::U16 kRequestImport = 0x8003;
constexpr AL::U16 kReplyImport = 0x0003;
constexpr AL::U16 kRequestDeviceList = 0x8005;
constexpr AL::U16 kReplyDeviceList = 0x0005;
constexpr std::size_t kManagementLength = 8; // version, code, status
constexpr AL::U32 kDone = 0;
constexpr AL::U32 kBusy = 2;
constexpr AL::U32 kNoDevice = 4;

constexpr std::size_t kPathLength = 256;
constexpr std::size_t kBusIdLength = 32;

constexpr AL::U32 kSubmit = 1;
constexpr AL::U32 kUnlink = 2;
constexpr AL::U32 kSubmitted = 3;
constexpr AL::U32 kUnlinked = 4;
constexpr AL::U32 kDirectionIn = 1;
constexpr AL::U32 kNotIsochronous = 0xffffffff; // as the number of packets; the kernel also sends 0
constexpr std::size_t kHeaderLength = 48;       // of a submission, an unlinking, and the answers to them

// Offsets of the numbers in the header.
constexpr std::size_t kCommandAt = 0x00;
constexpr std::size_t kSequenceAt = 0x04;
constexpr std::size_t kDirectionAt = 0x0c;
constexpr std::size_t kEndpointAt = 0x10;
constexpr std::size_t kStatusAt = 0x14; // in answers
constexpr std::size_t kLengthAt = 0x18;
constexpr std::size_t kPacketCountAt = 0x20;
constexpr std::size_t kSetupAt = 0x28;

// Our device. USB/IP needs its place on a bus of this machine.
constexpr const char* kDevicePath = "/sys/devices/simulated/usb1/1-1";
constexpr const char* kBusId = "1-1";
constexpr AL::U32 kBusNumber = 1;
constexpr AL::U32 kDeviceNumber = 2;
constexpr AL::U32 kDeviceId = kBusNumber << 16U | kDeviceNumber;

/// Appends a number to a message.
void append16(Bytes& message, AL::U16 number);
void append32(Bytes& message, AL::U32 number);
/// Appends a text to a message, padded with zeros.
void appendText(Bytes& message, const char* text, std::size_t length);

AL::U16 number16At(const Bytes& message, std::size_t place);
AL::U32 number32At(const Bytes& message, std::size_t place);
void setNumber32At(Bytes& message, std::size_t place, AL::U32 number);

/// Receives or sends a whole message. Returns false if the other side has hung up.
bool receive(int socket, Bytes& message, std::size_t length);
bool send(int socket, const Bytes& message);

} // namespace VorelKestrel::Simulator::UsbIp

#endif
