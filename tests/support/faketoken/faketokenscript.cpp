// Scripting the fake token in a process that is not the test's own: a text file with a statement
// a line, its parts divided by blanks. %20 stands for a blank inside a text, # begins a comment.
//
//     slot [id=N] [flags=N] [absent] [label=TEXT] [pin=TEXT] [loginpersession]
//         adds a slot; the first one takes the place of the slot that is there without a script
//     certificate value=HEX or value=@FILE [id=HEX] [label=TEXT]
//     key [id=HEX]
//         add an object to the last slot; without id there is an empty CKA_ID
//     fail FUNCTION NTH ANSWER
//     failany NTH ANSWER
//         the NTH call (of FUNCTION) answers ANSWER
//     record FILE
//         every call is written there once it is answered: its name, a blank, its answer in
//         decimal
//
// Numbers are decimal, or hexadecimal with 0x.
#include "faketokenscript.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

namespace faketoken {

namespace {

std::string recordFile;

class Statement {
public:
    explicit Statement(const std::string& line) {
        std::istringstream stream(line);
        std::string part;
        while (stream >> part && part.front() != '#')
            parts_.push_back(part);
    }

    bool empty() const { return parts_.empty(); }

    const std::string& operator[](std::size_t position) const {
        if (position >= parts_.size())
            throw std::runtime_error("something is missing");
        return parts_[position];
    }
    bool has(const std::string& word) const {
        return std::find(parts_.begin(), parts_.end(), word) != parts_.end();
    }
    /// What stands behind key=
    std::optional<std::string> find(const std::string& key) const {
        for (const std::string& part : parts_)
            if (part.compare(0, key.size() + 1, key + '=') == 0)
                return part.substr(key.size() + 1);
        return std::nullopt;
    }

private:
    std::vector<std::string> parts_;
};

CK_ULONG number(const std::string& text) {
    return static_cast<CK_ULONG>(std::stoull(text, nullptr, 0));
}

std::string text(std::string raw) {
    for (std::size_t at = raw.find("%20"); at != std::string::npos; at = raw.find("%20"))
        raw.replace(at, 3, " ");
    return raw;
}

Bytes hex(const std::string& digits) {
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    return bytes;
}

Bytes fileOrHex(const std::string& value) {
    if (value.front() != '@')
        return hex(value);
    std::ifstream file(value.substr(1), std::ios::binary);
    if (!file)
        throw std::runtime_error("cannot read " + value.substr(1));
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

Slot makeSlot(const Statement& statement) {
    Slot slot;
    slot.tokenPresent = !statement.has("absent");
    slot.loginPerSession = statement.has("loginpersession");
    if (const auto id = statement.find("id"))
        slot.id = number(*id);
    if (const auto flags = statement.find("flags"))
        slot.flags = number(*flags);
    if (const auto label = statement.find("label"))
        slot.label = text(*label);
    if (const auto pin = statement.find("pin"))
        slot.pin.assign(pin->begin(), pin->end());
    return slot;
}

class Reader {
public:
    void apply(const Statement& statement) {
        const std::string& verb = statement[0];
        if (verb == "slot")
            addSlot(makeSlot(statement));
        else if (verb == "certificate")
            addObject(certificate(fileOrHex(statement.find("value").value_or("")),
                                  hex(statement.find("id").value_or("")),
                                  text(statement.find("label").value_or(""))));
        else if (verb == "key")
            addObject(privateKey(hex(statement.find("id").value_or(""))));
        else if (verb == "fail")
            control.fail(statement[1], number(statement[2]), number(statement[3]));
        else if (verb == "failany")
            control.failAny(number(statement[1]), number(statement[2]));
        else if (verb == "record")
            recordFile = statement[1];
        else
            throw std::runtime_error("unknown word " + verb);
    }

    Control control;

private:
    void addSlot(Slot slot) {
        if (!hasSlots_)
            control.slots.clear();
        hasSlots_ = true;
        control.slots.push_back(std::move(slot));
    }
    void addObject(Object object) { control.slots.back().objects.push_back(std::move(object)); }

    bool hasSlots_ = false;
};

[[noreturn]] void giveUp(const std::string& path, int line, const char* reason) {
    std::fprintf(stderr, "%s:%d: %s\n", path.c_str(), line, reason);
    std::abort();
}

} // namespace

Control scriptedControl() {
    Reader reader;
    const char* path = std::getenv("FAKETOKEN_SCRIPT");
    if (!path)
        return std::move(reader.control);
    std::ifstream file(path);
    if (!file)
        giveUp(path, 0, "cannot be read");
    std::string line;
    for (int lineNumber = 1; std::getline(file, line); ++lineNumber) {
        try {
            if (const Statement statement(line); !statement.empty())
                reader.apply(statement);
        } catch (const std::exception& error) {
            giveUp(path, lineNumber, error.what());
        }
    }
    return std::move(reader.control);
}

void recordToFile(const Call& call) {
    if (!recordFile.empty())
        std::ofstream(recordFile, std::ios::app) << call.function << ' ' << call.answer << '\n';
}

} // namespace faketoken
