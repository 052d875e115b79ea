#ifndef CAPTURE_PRELOAD_RECORDER_H
#define CAPTURE_PRELOAD_RECORDER_H

#include <cstdint>

#include "capture/preload/nodes.h"
#include "capture/record.h"

namespace VorelKestrel::Capture {

/// Reads what the environment asks for. Until then, and if it asks for nothing, nothing is recorded.
void startRecorder();
bool isRecording();

/// The time of the monotonic clock, in nanoseconds since 1970.
std::uint64_t now();

/**
 * Appends a message to the capture: one system call that writes. A failure ends the capture of this process and is
 * told to the process that watches over the capture, never to the program; errno may change.
 */
void record(OpenNode& node, Record& record);

/// Opens the capture file, if that has not been done; the program may lose the right to do it later.
void openCapture();
/// Whether the descriptor is the capture's own, which the program must not close.
bool isCapture(int descriptor);
/// Takes the capture's descriptor out of the way when the program wants that very number.
void makeWay(int descriptor);

} // namespace VorelKestrel::Capture

#endif
