// What the certificate libraries are asked to do.
#include "peer.h"

#include <algorithm>
#include <stdexcept>

namespace bench {

void Facts::setSerialNumber(const unsigned char* octets, std::size_t size) {
    for (; size != 0 && *octets == 0; ++octets)
        --size;
    if (size > serialNumber.size())
        throw std::runtime_error("a serial number is too long");
    std::copy_n(octets, size, serialNumber.begin());
    serialNumberSize = size;
}

bool Facts::agreesWith(const Facts& other) const {
    return serialNumberSize == other.serialNumberSize && serialNumber == other.serialNumber &&
           notBefore == other.notBefore && notAfter == other.notAfter &&
           keyUsage == other.keyUsage && isAuthority == other.isAuthority && nameLength != 0 &&
           other.nameLength != 0;
}

std::int64_t secondsOf(int year, int month, int day, int hour, int minute, int second) {
    // Years that begin in March have their leap day at the end.
    const int marchYear = month > 2 ? year : year - 1;
    const int dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    const std::int64_t era = marchYear / 400;
    const int yearOfEra = marchYear % 400;
    const std::int64_t days =
        era * 146097 + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear - 719468;
    return ((days * 24 + hour) * 60 + minute) * 60 + second;
}

unsigned usageBits(const unsigned char* octets, std::size_t size) {
    unsigned bits = 0;
    for (std::size_t i = 0; i != std::min<std::size_t>(size * 8, 9); ++i)
        if ((octets[i / 8] & (0x80 >> i % 8)) != 0)
            bits |= 1u << i;
    return bits;
}

std::vector<Peer*> allPeers() {
    return {&certstoreupdaterPeer(),
            &opensslPeer(),
            &gnutlsPeer(),
            &mbedtlsPeer(),
            &botanPeer(),
            &nssPeer(),
            &ksbaPeer(),
            &tasn1Peer()};
}

} // namespace bench
