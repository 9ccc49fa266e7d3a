// Hexadecimal and UTF-8, at lengths from an id's to a megabyte.
#include "bufcodecs.h"
#include "comparison.h"

#include <boost/algorithm/hex.hpp>
#include <boost/locale/encoding_utf.hpp>
#include <botan/hex.h>
#include <openssl/crypto.h>

#include <iconv.h>

#include <memory>
#include <stdexcept>

namespace bench {

namespace {

using buffer::BufferRange;
using Octets = std::vector<unsigned char>;

constexpr std::size_t sizes[] = {20, 1'024, 32'768, 1'048'576};

void addHex(std::size_t size) {
    Octets bytes(size);
    for (std::size_t i = 0; i != size; ++i)
        bytes[i] = static_cast<unsigned char>(i * 167);
    compare("hex", library, size, [bytes] {
        const auto text = buffer::hexEncode({bytes.data(), bytes.size()});
        return text.data()[text.size() - 1];
    });
    compare("hex", "Boost.Algorithm", size, [bytes] {
        std::wstring text(bytes.size() * 2, L'\0');
        boost::algorithm::hex(bytes.begin(), bytes.end(), text.begin());
        return text.back();
    });
    compare("hex", "Botan, narrow text", size,
            [bytes] { return Botan::hex_encode(bytes.data(), bytes.size()).back(); });
    compare("hex", "OpenSSL, narrow text", size, [bytes] {
        std::string text(bytes.size() * 2 + 1, '\0');
        std::size_t length = 0;
        OPENSSL_buf2hexstr_ex(text.data(), text.size(), &length, bytes.data(), bytes.size(), '\0');
        return text[length - 2];
    });
}

/// A converter of the C library, open for as long as it is used.
class Converter {
public:
    Converter(const char* to, const char* from)
        : descriptor_(iconv_open(to, from), [](iconv_t descriptor) { iconv_close(descriptor); }) {}

    /// \returns how many elements of `out` were written
    template <class From, class To>
    std::size_t convert(const From& from, To& out) const {
        char* input = const_cast<char*>(reinterpret_cast<const char*>(from.data()));
        std::size_t inputLeft = from.size() * sizeof from[0];
        char* output = reinterpret_cast<char*>(out.data());
        std::size_t outputLeft = out.size() * sizeof out[0];
        if (iconv(descriptor_.get(), &input, &inputLeft, &output, &outputLeft) != 0)
            throw std::runtime_error("iconv does not convert");
        return out.size() - outputLeft / sizeof out[0];
    }

private:
    std::shared_ptr<void> descriptor_;
};

/// `size` characters, all of them ASCII or of several scripts, none above U+FFFF.
std::wstring sample(bool isAscii, std::size_t size) {
    const std::wstring ascii = L"CN=Holder of a card, O=Company, C=DE; ";
    const std::wstring mixed =
        L"Grüße aus Köln, привет из Москвы, 東京からこんにちは, plain text; ";
    const std::wstring& unit = isAscii ? ascii : mixed;
    std::wstring text;
    while (text.size() < size)
        text += unit;
    text.resize(size);
    return text;
}

void addUtf8(const std::string& kind, const std::wstring& text) {
    const std::size_t size = text.size();
    const std::string utf8 = boost::locale::conv::utf_to_utf<char>(text);
    const std::string decode = "utf8decode" + kind;
    compare(decode, library, size, [utf8] {
        BufferRange<unsigned char> bytes(reinterpret_cast<const unsigned char*>(utf8.data()),
                                         utf8.size());
        buffer::Buffer<wchar_t> wide;
        buffer::Utf8Decoder::decode(bytes, wide);
        return wide.size();
    });
    compare(decode, "iconv", size, [utf8, converter = Converter("WCHAR_T", "UTF-8")] {
        std::wstring wide(utf8.size(), L'\0');
        wide.resize(converter.convert(utf8, wide));
        return wide.size();
    });
    compare(decode, "Boost.Locale", size,
            [utf8] { return boost::locale::conv::utf_to_utf<wchar_t>(utf8).size(); });

    const std::string encode = "utf8encode" + kind;
    compare(encode, library, size, [text] {
        buffer::Buffer<unsigned char> bytes;
        buffer::Utf8Encoder::encode({text.data(), text.size()}, bytes);
        return bytes.size();
    });
    compare(encode, "iconv", size, [text, converter = Converter("UTF-8", "WCHAR_T")] {
        std::string bytes(text.size() * 3, '\0');
        bytes.resize(converter.convert(text, bytes));
        return bytes.size();
    });
    compare(encode, "Boost.Locale", size,
            [text] { return boost::locale::conv::utf_to_utf<char>(text).size(); });
}

} // namespace

void addCodecs() {
    for (const std::size_t size : sizes)
        addHex(size);
    for (const std::size_t size : sizes) {
        addUtf8("ascii", sample(true, size));
        addUtf8("mixed", sample(false, size));
    }
}

} // namespace bench
