// certificate_check: whether a node refuses the certificate of this host.
//
// With TLS 1.3, a node does so after the handshake. gRPC then reports a closed connection, which
// has other causes, too. A handshake of this module's own receives the alert of the node.
#pragma once

#include <string>

#include "transport/endpoint.h"

namespace zfleet {

/// Connects to a node and returns whether the node refuses this host: its certificate, or the lack
/// of a certificate. Returns false after `timeout`, and without a connection.
/// range   `address` is "host:port"; the certificates have a CA.
bool isCertificateRefused(std::string const& address, Certificates const& certificates,
                          Clock::duration timeout);

}  // namespace zfleet
