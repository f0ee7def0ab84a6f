// From an event of the host to a notification for the worker: matching, throttle, captures,
// parking.
//
// Threads: the host's Write paths. Locks: every call is made under the intake mutex; what may wait
//          until it is free is left in the outcome.
// Errors:  what does not concern a configured profile is logged or skipped; only memory exhaustion
//          throws, and then ends the processing of the document.
// Not here: reading the document (event_document.h), frames (video/).
#pragma once

#include <cstdint>

#include "service/event_document.h"
#include "service/service_state.h"

namespace tvx {

// Takes a document: releases parked notifications that its events end, and makes notifications of
// those that are due. Whatever has nothing to wait for is dispatched at once.
void ReceiveEvents(const EventDocument& document, ServiceState& state, IntakeOutcome& outcome);

// Dispatches the ready notifications: finishes their clips and hands them to the worker.
void DispatchReady(ServiceState& state, IntakeOutcome& outcome);

}  // namespace tvx
