// SPDX-License-Identifier: Apache-2.0
// What happens when the library is loaded, in this order: the types are bound and registered, a flag tells
// that this is done, the messages are defined. One file, since only that orders the objects of a library. A
// static library is linked file by file: this one comes with the message that every record may log.
#include "Kes/ByName/TypeRegistry.h"
#include "Vorn/Messages.h"
#include "Vorn/Registration.h"

namespace Vorn {

namespace {

constinit bool done = false;

// Makes each type, and a handle for each of its attributes, known by name, be somebody listening or not.
void bindTypes() {
  for (Kes::Type const* const type : types()) {
    Kes::TypeNode& node = Kes::TypeRegistry::instance().typeNode(type->name());
    for (Kes::Attribute const& attribute : type->attributes()) node.attributeHandle(attribute.name);
  }
}

struct Types {
  Types() {
    bindTypes();
    registerTypes();
    done = true;
  }
} const initialised;

}  // namespace

bool initialisationDone() { return done; }

// The three numbers that end every definition: rate-limit interval and burst (never silenced), and the number
// of leading arguments in the rate-limit key.

Kes::LogHandle QUEUEMONITOR_LENGTH_OVER_THRESHOLD("QUEUEMONITOR_LENGTH_OVER_THRESHOLD",
                                                  Kes::LogSeverity::informational, "%s",
                                                  "Interface queue length is over threshold.",
                                                  Kes::NoActionRequired, 0.0, 1.0, 0);

Kes::LogHandle QUEUEMONITOR_LENGTH_UNDER_THRESHOLD(
    "QUEUEMONITOR_LENGTH_UNDER_THRESHOLD", Kes::LogSeverity::informational,
    "Interface %s max queue length was %d, now back under low threshold of %d",
    "Interface queue length is back under low threshold.", Kes::NoActionRequired, 0.0, 1.0, 0);

Kes::LogHandle QUEUEMONITOR_LENGTH_UPDATE("QUEUEMONITOR_LENGTH_UPDATE", Kes::LogSeverity::informational, "%s",
                                          "Interface queue length and queue drop update message.",
                                          Kes::NoActionRequired, 0.0, 1.0, 0);

Kes::LogHandle QUEUEMONITOR_HW_RESOURCE_FULL(
    "QUEUEMONITOR_HW_RESOURCE_FULL", Kes::LogSeverity::error, "%s",
    "The ASIC is unable to program all VORN configuration due to insufficient hardware resources.",
    "Reconfigure VORN to reduce the amount of resources needed.", 0.0, 1.0, 0);

Kes::LogHandle QUEUEMONITOR_UNEXPSEQNUM("QUEUEMONITOR_UNEXPSEQNUM", Kes::LogSeverity::warning,
                                        "Congestion message with un-expected sequence number is received%s",
                                        "Reinitializing VORN processor state", Kes::CallSupportIfPersists,
                                        0.0, 1.0, 0);

}  // namespace Vorn
