// wire_forms: requests and replies as messages of the wire format.
#pragma once

#include "fleet_messages.pb.h"
#include "transport/requests.h"

namespace zfleet {

wire::RangeRequest toWire(Range const& range);
wire::TxnRequest toWire(Transaction const& transaction);

// These move the contents out of the message.
RangeResult fromWire(wire::RangeResponse& response);
TransactionResult fromWire(wire::TxnResponse& response);

Header fromWire(wire::Header const& header);

}  // namespace zfleet
