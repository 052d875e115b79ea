#ifndef SIMULATOR_USB_USBIPSESSION_H
#define SIMULATOR_USB_USBIPSESSION_H

#include "simulator/usb/adapter.h"

namespace VorelKestrel::Simulator {

/**
 * Carries out what a USB host controller submits to the device over a stream socket, one transfer after the other,
 * until the other side hangs up or says what cannot be understood.
 *
 * A transfer that the host gives up is carried out all the same; its unlinking finds it done.
 */
void serveTransfers(int socket, Adapter& device);

} // namespace VorelKestrel::Simulator

#endif
