// The errors of the text codecs.
#pragma once

#include "genericevent.h"

namespace buffer {

/// Base of this layer's errors.
KORV_EVENT_FAMILY(BufferError, korv::GenericEvent);

/// Bytes that are not the encoding they should be. Parameters: "CODEC" and "CAUSE"; none for a
/// byte that no encoding begins with.
KORV_EVENT_CLASS(BufferError_InvalidEncodingUnit, BufferError);

} // namespace buffer
