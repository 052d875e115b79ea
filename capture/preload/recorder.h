#ifndef CAPTURE_PRELOAD_RECORDER_H
#define CAPTURE_PRELOAD_RECORDER_H

#include <cstdint>

#include "capture/preload/nodes.h"
#include "capture/record.h"

namespace VorelKestrel::Capture {

/// Reads the settings from the environment. Before this, and without settings, nothing is recorded.
void startRecorder();
bool isRecording();

/// The time of the monotonic clock, in nanoseconds since 1970.
std::uint64_t now();

/**
 * Appends a message to the capture with one system call. A failure ends the capture of this process, and is reported to
 * the process that runs the capture, never to the program. May change errno.
 */
void record(OpenNode& node, Record& record);

/// Opens the capture file if it is not open; later the program may have lost the right to open it.
void openCapture();
/// Whether the descriptor belongs to the capture, so that the program must not close it.
bool isCapture(int descriptor);
/// Moves the capture's descriptor if the program needs its number.
void makeWay(int descriptor);

} // namespace VorelKestrel::Capture

#endif
