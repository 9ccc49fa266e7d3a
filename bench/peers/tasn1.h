// A certificate as libtasn1's tree of nodes.
#pragma once

#include "peer.h"

#include <libtasn1.h>

namespace bench::tasn1 {

/// The definitions of certificate.asn.
asn1_node definitions();

/// A decoded certificate.
class Element {
public:
    explicit Element(Der der);
    ~Element();
    Element(const Element&) = delete;
    Element& operator=(const Element&) = delete;

    bool isValid() const { return isValid_; }
    asn1_node get() const { return node_; }

private:
    asn1_node node_ = nullptr;
    bool isValid_ = false;
};

} // namespace bench::tasn1
