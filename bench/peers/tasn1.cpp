// libtasn1's decoder, with the definition of a certificate from RFC 5280.
#include "tasn1.h"

#include <stdexcept>

namespace bench {

namespace tasn1 {

asn1_node definitions() {
    static const asn1_node parsed = [] {
        asn1_node tree = nullptr;
        char error[ASN1_MAX_ERROR_DESCRIPTION_SIZE] = {};
        if (asn1_parser2tree(BENCH_PEERS "/certificate.asn", &tree, error) != ASN1_SUCCESS)
            throw std::runtime_error(error);
        return tree;
    }();
    return parsed;
}

Element::Element(Der der) {
    asn1_create_element(definitions(), "Certificates.Certificate", &node_);
    int size = static_cast<int>(der.size());
    isValid_ = asn1_der_decoding2(&node_, der.data(), &size, ASN1_DECODE_FLAG_STRICT_DER,
                                  nullptr) == ASN1_SUCCESS;
}

Element::~Element() {
    asn1_delete_structure(&node_);
}

} // namespace tasn1

namespace {

class HeldCertificate : public Held {
public:
    explicit HeldCertificate(Der der) : element_(der), encoding_(2 * der.size()) {}

    std::size_t encode() override { return encodeAnew(); } // it keeps values only
    std::size_t encodeAnew() override {
        int size = static_cast<int>(encoding_.size());
        asn1_der_coding(element_.get(), "", encoding_.data(), &size, nullptr);
        return static_cast<std::size_t>(size);
    }
    std::size_t copy() override { return 0; }

private:
    tasn1::Element element_;
    std::vector<unsigned char> encoding_;
};

class Tasn1Peer : public Peer {
public:
    std::string name() const override { return "libtasn1"; }
    std::string version() const override { return asn1_check_version(nullptr); }

    bool decode(Der der) override { return tasn1::Element(der).isValid(); }

    bool canRead() const override { return false; } // it renders no names
    bool read(Der, Facts&) override { return false; }

    Abilities abilities() const override { return {true, true, false}; }
    std::unique_ptr<Held> hold(Der der) override { return std::make_unique<HeldCertificate>(der); }
};

} // namespace

Peer& tasn1Peer() {
    static Tasn1Peer peer;
    return peer;
}

} // namespace bench
