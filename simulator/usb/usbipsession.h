#ifndef SIMULATOR_USB_USBIPSESSION_H
#define SIMULATOR_USB_USBIPSESSION_H

#include "simulator/usb/usbadapter.h"

namespace VorelKestrel::Simulator {

/**
 * Executes the transfers that a USB host controller submits over a stream socket, one after the other, until the other
 * side hangs up or sends something invalid.
 *
 * A transfer that the host cancels is executed anyway; the answer to the cancellation says so.
 */
void serveTransfers(int socket, UsbAdapter& device);

} // namespace VorelKestrel::Simulator

#endif
