// What fuzzing begins with.
#include "seeds.h"

#include "acceptedcertificates.h"
#include "asn1support.h"
#include "certbuilder.h"

#include <initializer_list>
#include <stdexcept>

namespace fuzz {

namespace {

using namespace testsupport;
using asn1_test::acceptedCertificates;
using asn1_test::fullCertificate;

class Seeds {
public:
    void add(Bytes bytes) {
        const std::size_t number = seeds_.size() + 1;
        seeds_.push_back({"seed" + std::to_string(number), std::move(bytes)});
    }
    void add(unsigned char choice, const Bytes& bytes) { add(Bytes{choice} + bytes); }

    std::vector<Seed> all() && { return std::move(seeds_); }

private:
    std::vector<Seed> seeds_;
};

Bytes indefinite(unsigned char identifier, const Bytes& contents) {
    return Bytes{identifier, 0x80} + contents + fromHex("0000");
}

Bytes oddName() {
    return nameOf({set({attribute("CN", teletexString({0xE4, ','})),
                        attribute("2.5.4.45", bitString({0x80}, 7))}),
                   set({attribute("O", bmpString(u"\u20AC"))}),
                   set({attribute("1.2.3", sequence({integer(1), indefinite(0x30, {})}))}),
                   set({attribute("C", printableString("DE"))}),
                   set({attribute("CN", universalString(U"\U0001F600"))}),
                   set({attribute("OU", utf8String("\xC3\xA9;=#"))})});
}

Bytes keyUsageOf(const char* hex) {
    return extension("2.5.29.15", fromHex(hex));
}

std::vector<Bytes> certificates() {
    std::vector<Bytes> all = {
        CertBuilder().build(),
        fullCertificate().build(),
        fullCertificate().subject(oddName()).build(),
        fullCertificate().issuer(name({})).subject(name({})).build(),
        fullCertificate().extensions({keyUsage({8}), keyUsage({0})}).build(),
        fullCertificate().extensions({basicConstraints(std::nullopt, 7)}).build(),
        fullCertificate()
            .extensions({keyUsageOf("23 80 03 02 00 80 00 00"),
                         extension("2.5.29.19", fromHex("30 81 04 01 01 01 05"), true)})
            .build(),
        fullCertificate().extensions({keyUsageOf("23 06 03 04 00 80 00 00")}).build(),
        fullCertificate().extensions({keyUsageOf("23 08 03 02 00 04 03 02 07 80")}).build(),
        fullCertificate().extensions({extension("2.5.29.19", CertBuilder().build())}).build(),
        fullCertificate().serialNumber(fromHex("02 09 00 FF FF FF FF FF FF FF FF")).build(),
        fullCertificate().version(explicitly(0, integer(0))).build(),
    };
    for (const asn1_test::Accepted& row : acceptedCertificates())
        all.push_back(row.certificate);
    return all;
}

void addCertificates(Seeds& seeds) {
    for (const Bytes& certificate : certificates())
        seeds.add(certificate);
}

/// An encoding of each type, in the order in which the target chooses them.
void addEncodings(Seeds& seeds) {
    const Bytes algorithm = sequence({objectIdentifier("1.2.840.113549.1.1.11"), null()});
    const Bytes times = utcTime("260101000000Z") + generalizedTime("20510101000000.5Z");
    const std::initializer_list<Bytes> encodings = {
        fullCertificate().build(),
        CertBuilder().build(),
        fullCertificate().toBeSigned(),
        sequence({keyUsage({0}), basicConstraints(true, 1)}),
        extension("1.2.3", fromHex("0500"), true),
        sequence({boolean(true), integer(3)}),
        algorithm,
        sequence({algorithm, bitString({1, 2})}),
        sequence({times}),
        utcTime("491231235959Z"),
        oddName(),
        name({{"C", "DE"}, {"CN", "Name"}}),
        sequence({objectIdentifier("2.5.4.3"), utf8String("Name")}),
        printableString("text"),
        indefinite(0x30, fromHex("1F 81 01 01 00")),
        fromHex("01 01 2A"),
        integer(-129),
        bitString({0xFF}, 3),
        octetString(fromHex("0102")),
        objectIdentifier("2.999.18446744073709551615"),
        utf8String("\xC3\xA9"),
        bmpString(u"\u20AC"),
        universalString(U"\U0001F600"),
        utcTime("500228000000Z"),
        generalizedTime("20000229235959.25Z"),
    };
    unsigned char choice = 0;
    for (const Bytes& encoding : encodings) {
        seeds.add(choice, encoding);
        seeds.add(static_cast<unsigned char>(choice | 0x80), encoding + fromHex("00"));
        if ((encoding[0] & 0x20) != 0 && encoding[1] < 0x80)
            seeds.add(choice, indefinite(encoding[0], Bytes(encoding.begin() + 2, encoding.end())));
        ++choice;
    }
    // Strings in segments.
    seeds.add(3, sequence({sequence({objectIdentifier("1.2.3"), fromHex("24 04 04 02 01 02")})}));
    seeds.add(13, fromHex("2C 06 0C 01 41 04 01 42"));
    seeds.add(17, fromHex("23 08 03 02 00 04 03 02 07 80"));
    seeds.add(18, fromHex("24 80 24 04 04 02 AA BB 04 01 CC 00 00"));
    seeds.add(23, fromHex("37 11 04 06 323630313031 04 07 3030303030305A"));
}

void addNames(Seeds& seeds) {
    seeds.add(0, oddName());
    seeds.add(0, name({{"C", "DE"}, {"O", "a,b"}, {"CN", "Name"}, {"CN", "\\"}}));
    seeds.add(0, name({}));
    for (const char* identifier : {"2.5.4.3", "1.39.0", "0.0", "2.999.18446744073709551615"}) {
        const Bytes encoding = objectIdentifier(identifier);
        seeds.add(1, Bytes(encoding.begin() + 2, encoding.end()));
        seeds.add(2, fromText(identifier));
    }
    seeds.add(1, fromHex("88 37 FF FF FF FF FF FF FF FF FF FF 7F"));
    for (const char* time : {"260101000000Z", "000229235959Z", "991231235959Z"})
        seeds.add(3, fromText(time));
    for (const char* time : {"20260101000000Z", "20000229235959.25Z", "19000228000000Z"})
        seeds.add(4, fromText(time));
    for (const Bytes& string : {utf8String("\xC3\xA9"), printableString("a"), bmpString(u"\u20AC"),
                                teletexString({0xE4}), universalString(U"\U0001F600")})
        seeds.add(5, string);
    seeds.add(0, nameOf({set({attribute("CN", fromHex("2C 06 0C 04 41 42 43 44"))})}));
}

void addText(Seeds& seeds) {
    for (const char* hex :
         {"41 C3A9 E282AC F09F9880", "8080 BF80 C080 DFBF", "E08080 EDA0BD EDB880 EFBFBF",
          "F88080 8080 FBBFBFBFBF", "FC8080808080 FDBFBFBFBFBF", "C341", "C3", "E282", "E28241",
          "41 FE", "FF", "F09F98", "F8808080C0", "00"})
        seeds.add(fromHex(hex));
}

void addBindings(Seeds& seeds) {
    for (const char* text : {"CKAIDHEX:01A2FF\nSome CSP\n", "A\nB\n", "A\nB", "A\n", "", "\n\n",
                             "A\nB\nC\n", "\xC3\xA9\n\xE2\x82\xAC\n", "A\n\xC3"})
        seeds.add(fromText(text));
}

/// Scripts: slots, objects, then what becomes of each call.
void addModules(Seeds& seeds) {
    const Bytes token = fromHex("01 06 40 11 41 12 42 13 43 14 45 11 04");
    const Bytes certificate = CertBuilder().names("C", "D").build();
    seeds.add(token);
    seeds.add(fromHex("02 01 44 AA 70") + certificate);
    seeds.add(fromHex("00"));
    const Bytes untouchedStart(7, 0);
    for (const char* change :
         {"01 02", "01 0E", "02 0F", "02 40", "03 07", "03 0F", "04 00 0F", "04 01 0B", "05 02 07",
          "05 00 0C", "06 00 02", "07 02 03 C3 28", "08 00", "09", "0A 00", "0B 00"}) {
        seeds.add(token + fromHex(change));
        seeds.add(token + untouchedStart + fromHex(change) + fromHex("00 00") + fromHex(change));
    }
}

} // namespace

std::vector<Seed> seedsOf(std::string_view target) {
    const struct {
        std::string_view target;
        void (*add)(Seeds&);
    } makers[] = {
        {"ber", addEncodings},       {"certificate", addCertificates},
        {"cspbinding", addBindings}, {"hostilemodule", addModules},
        {"names", addNames},         {"openssl", addCertificates},
        {"utf8", addText},
    };
    for (const auto& maker : makers)
        if (maker.target == target) {
            Seeds seeds;
            maker.add(seeds);
            return std::move(seeds).all();
        }
    throw std::logic_error("no seeds for " + std::string(target));
}

} // namespace fuzz
