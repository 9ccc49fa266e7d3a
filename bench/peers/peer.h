// What the certificate libraries are asked to do, the same for each.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace bench {

using Der = std::span<const unsigned char>;

/// What is read from a certificate. All libraries must agree on it, but for the names, which each
/// writes in its own way.
struct Facts {
    std::array<unsigned char, 64> serialNumber{}; ///< without leading zeros
    std::size_t serialNumberSize = 0;
    std::int64_t notBefore = 0; ///< seconds since 1970
    std::int64_t notAfter = 0;
    unsigned keyUsage = 0;      ///< bit n of the extension is 1 << n; 0 without the extension
    bool isAuthority = false;   ///< what BasicConstraints says
    std::size_t nameLength = 0; ///< of subject and issuer together

    void setSerialNumber(const unsigned char* octets, std::size_t size);
    /// Both must hold; the names may differ.
    bool agreesWith(const Facts& other) const;
};

/// Seconds since 1970 of a time in UTC.
std::int64_t secondsOf(int year, int month, int day, int hour, int minute, int second);

/// The bits of a KeyUsage extension's BIT STRING, the first one the lowest.
unsigned usageBits(const unsigned char* octets, std::size_t size);

/// A certificate that is decoded already.
class Held {
public:
    Held() = default;
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
    virtual ~Held() = default;

    /// Encodes it as it was decoded. \returns the size, here and below
    virtual std::size_t encode() = 0;
    /// Encodes it from its values, whether or not an encoding is at hand.
    virtual std::size_t encodeAnew() = 0;
    /// Makes and drops a copy that does not change with the original.
    virtual std::size_t copy() = 0;
};

class Peer {
public:
    Peer() = default;
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    virtual ~Peer() = default;

    /// Its name, as tables show it.
    virtual std::string name() const = 0;
    virtual std::string version() const = 0;

    /// Decodes the certificate into an object that owns all that it needs, and frees it.
    /// \returns whether it was accepted
    virtual bool decode(Der certificate) = 0;

    /// Whether it can do what `read` asks.
    virtual bool canRead() const { return true; }
    /// Decodes, reads all of `Facts`, renders both names, frees everything.
    virtual bool read(Der certificate, Facts& facts) = 0;

    /// What it can do with a decoded certificate.
    struct Abilities {
        bool encode = false;
        bool encodeAnew = false;
        bool copy = false;
    };
    virtual Abilities abilities() const { return {}; }
    /// \returns null if it has none of these abilities
    virtual std::unique_ptr<Held> hold(Der) { return nullptr; }
};

Peer& certstoreupdaterPeer();
Peer& opensslPeer();
Peer& gnutlsPeer();
Peer& mbedtlsPeer();
Peer& botanPeer();
Peer& nssPeer();
Peer& ksbaPeer();
Peer& tasn1Peer();

/// This library first.
std::vector<Peer*> allPeers();

} // namespace bench
