// Which contents octets a primitive type allows, and how DER writes them.
#include "contents.h"

#include "simpletypes.h"

#include <algorithm>

namespace asn1 {

namespace {

using Contents = BufferRange<unsigned char>;

/// X.690 8.3.2: the first nine bits of more than one octet are not all the same.
bool isInteger(Contents contents) noexcept {
    if (contents.size() < 2)
        return !contents.empty();
    const unsigned firstNineBits = contents[0] * 2u + (contents[1] >> 7);
    return firstNineBits != 0 && firstNineBits != 0x1FF;
}

/// X.690 8.6.2.
bool isBitString(Contents contents) noexcept {
    return !contents.empty() && contents[0] <= (contents.size() == 1 ? 0 : 7);
}

bool noArcBeginsWithZeroBits(Contents contents) noexcept {
    bool atArcBegin = true;
    for (const unsigned char octet : contents) {
        if (atArcBegin && octet == 0x80)
            return false;
        atArcBegin = (octet & 0x80) == 0;
    }
    return true;
}

/// X.690 8.19.2: no arc begins with an octet of 80, and the last one ends.
bool isObjectIdentifier(Contents contents) noexcept {
    if (contents.empty() || contents.size() > ObjectIdentifier::maxContents)
        return false;
    if ((contents[contents.size() - 1] & 0x80) != 0)
        return false;
    // Hardly any identifier has such an octet, so hardly any needs the look at its arcs.
    return std::ranges::find(contents, 0x80) == contents.end() || noArcBeginsWithZeroBits(contents);
}

bool isDigit(unsigned char character) noexcept {
    return character >= '0' && character <= '9';
}

/// The number in two digits, or one that no field of a time allows.
unsigned twoDigits(const unsigned char* text) noexcept {
    if (!isDigit(text[0]) || !isDigit(text[1]))
        return 100;
    return (text[0] - unsigned{'0'}) * 10 + (text[1] - unsigned{'0'});
}

unsigned daysIn(unsigned month, unsigned year) noexcept {
    const bool leapYear = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
    if (month == 2)
        return leapYear ? 29 : 28;
    return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
}

/// MMDDHHMMSS
bool isDateAndTime(unsigned year, const unsigned char* text) noexcept {
    const unsigned month = twoDigits(text);
    const unsigned day = twoDigits(text + 2);
    return month >= 1 && month <= 12 && day >= 1 && day <= daysIn(month, year) &&
           twoDigits(text + 4) <= 23 && twoDigits(text + 6) <= 59 && twoDigits(text + 8) <= 59;
}

/// X.690 11.8: YYMMDDHHMMSSZ.
bool isUtcTime(Contents contents) noexcept {
    if (contents.size() != 13 || contents[12] != 'Z')
        return false;
    const unsigned year = twoDigits(contents.begin());
    return year <= 99 &&
           isDateAndTime(year >= 50 ? 1900 + year : 2000 + year, contents.begin() + 2);
}

/// What may stand between the seconds and the Z: nothing, or a point and digits of which the
/// last is not 0.
bool isFraction(Contents text) noexcept {
    if (text.empty())
        return true;
    if (text.size() < 2 || text[0] != '.' || text[text.size() - 1] == '0')
        return false;
    for (std::size_t i = 1; i != text.size(); ++i)
        if (!isDigit(text[i]))
            return false;
    return true;
}

/// X.690 11.7: YYYYMMDDHHMMSS[.f]Z.
bool isGeneralizedTime(Contents contents) noexcept {
    if (contents.size() < 15 || contents[contents.size() - 1] != 'Z')
        return false;
    const unsigned century = twoDigits(contents.begin());
    const unsigned year = twoDigits(contents.begin() + 2);
    return century <= 99 && year <= 99 &&
           isDateAndTime(century * 100 + year, contents.begin() + 4) &&
           isFraction({contents.begin() + 14, contents.end() - 1});
}

} // namespace

bool contentsFit(TypeClass typeClass, Contents contents, Rules rules) noexcept {
    switch (typeClass) {
    case TypeClass::boolean:
        return contents.size() == 1 &&
               (rules == Rules::ber || contentsAreNormal(typeClass, contents));
    case TypeClass::integer:
        return isInteger(contents);
    case TypeClass::bitString:
        return isBitString(contents) &&
               (rules == Rules::ber || contentsAreNormal(typeClass, contents));
    case TypeClass::objectIdentifier:
        return isObjectIdentifier(contents);
    case TypeClass::twoByteString:
        return contents.size() % 2 == 0;
    case TypeClass::fourByteString:
        return contents.size() % 4 == 0;
    case TypeClass::utcTime:
        return isUtcTime(contents);
    case TypeClass::generalizedTime:
        return isGeneralizedTime(contents);
    default:
        return true;
    }
}

bool contentsAreNormal(TypeClass typeClass, Contents contents) noexcept {
    return contents.empty() ||
           contents[contents.size() - 1] == normalLastOctet(typeClass, contents);
}

unsigned char normalLastOctet(TypeClass typeClass, Contents contents) noexcept {
    const unsigned char last = contents[contents.size() - 1];
    if (typeClass == TypeClass::boolean) // X.690 11.1
        return last == 0 ? 0x00 : 0xFF;
    if (typeClass == TypeClass::bitString && contents.size() > 1) // X.690 11.2.1
        return static_cast<unsigned char>(last & (0xFFu << contents[0]));
    return last;
}

} // namespace asn1
