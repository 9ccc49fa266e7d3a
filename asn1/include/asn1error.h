// The errors of the certificate model.
#pragma once

#include "genericevent.h"

namespace asn1 {

/// Base of this layer's errors; never thrown itself.
KORV_EVENT_FAMILY(QuorError, korv::GenericEvent);
/// Base of the errors below; never thrown itself.
KORV_EVENT_FAMILY(QuorError_Asn1, QuorError);

/// Bytes are not the encoding of the expected type. "CAUSE", for surplus bytes also
/// "CONSUMED_BYTES" and "BUFFER_SIZE", for all others "POSITION": the decimal offset in the input
/// of the element that does not fit. After a wrong tag the parent is a
/// `QuorError_Asn1_InvalidTag`.
KORV_EVENT_CLASS(QuorError_Asn1_Decode, QuorError_Asn1);

/// A value cannot be encoded. "FIELD_NAME": the innermost member without a value, with a
/// `QuorError_Asn1_UnsetValue` as parent; or "CAUSE" = "UnknwonClass" and "CLASS".
KORV_EVENT_CLASS(QuorError_Asn1_Encode, QuorError_Asn1);

/// A value is in a state that it cannot get into by decoding. "CAUSE".
KORV_EVENT_CLASS(QuorError_Asn1_InternalError, QuorError_Asn1);

/// An operation was asked for something that it does not do. "CAUSE".
KORV_EVENT_CLASS(QuorError_Asn1_InvalidCall, QuorError_Asn1);

/// There is no item with this index. "INDEX", "SIZE".
KORV_EVENT_CLASS(QuorError_Asn1_InvalidItemIndex, QuorError_Asn1);

/// Never thrown, so it has no parameters: input that ends too early is a `QuorError_Asn1_Decode`.
KORV_EVENT_CLASS(QuorError_Asn1_InvalidStreamOp, QuorError_Asn1);

/// The tag of an element is not the expected one. "EXPECTED_TAG", "FOUND_TAG": identifier
/// octets, upper-case hexadecimal, blanks between those of the alternatives of a CHOICE.
KORV_EVENT_CLASS(QuorError_Asn1_InvalidTag, QuorError_Asn1);

/// A value that is needed has no default. "CAUSE".
KORV_EVENT_CLASS(QuorError_Asn1_NoDefaultValue, QuorError_Asn1);

/// A certificate has no extension of this kind. "EXTENSION": its identifier, dotted decimal.
KORV_EVENT_CLASS(QuorError_Asn1_ObjectMissing, QuorError_Asn1);

/// A number does not fit into the type that it was asked for in. "TYPE".
KORV_EVENT_CLASS(QuorError_Asn1_RangeViolation, QuorError_Asn1);

/// A value was to be set to something that its type does not allow. "TYPE".
KORV_EVENT_CLASS(QuorError_Asn1_SettingValue, QuorError_Asn1);

/// A value was read that is not set. "TYPE": its ASN.1 type.
KORV_EVENT_CLASS(QuorError_Asn1_UnsetValue, QuorError_Asn1);

} // namespace asn1
