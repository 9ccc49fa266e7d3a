// Scripting the fake token in a process that is not the test's own: a text file with one statement
// on each line, its parts separated by blanks. %20 stands for a blank inside a text, # begins a
// comment.
//
//     slot [id=N] [flags=N] [absent] [label=TEXT] [pin=TEXT] [loginpersession]
//         adds a slot; the first one takes the place of the slot that is there without a script
//     certificate value=HEX or value=@FILE [id=HEX] [label=TEXT]
//     key [id=HEX]
//         add an object to the last slot; without id there is an empty CKA_ID
//     lie value|id|label [claimed=N] [filled=N]
//         the length that the last object's attribute claims when only its length is asked for, or
//         once its value was read; -1 stands for CK_UNAVAILABLE_INFORMATION
//     objectsfrom FILE
//         the objects of the last slot's token are those of that file, whose statements are
//         certificate, key and lie. The file is read again at each C_FindObjectsInit; to change it
//         while a program runs, put another file in its place, so that it is never half written
//     slotcount N
//     foundcount N
//         C_GetSlotList or C_FindObjects claims to have listed N slots or objects
//     fail FUNCTION NTH ANSWER
//     failany NTH ANSWER
//         the NTH call (of FUNCTION) answers ANSWER
//     failfrom NTH ANSWER
//         the NTH call and all calls after it answer ANSWER
//     failwhile FILE FUNCTION ANSWER
//         FUNCTION answers ANSWER at each call for as long as there is such a file
//     hangwhile FILE FUNCTION
//         FUNCTION says on standard error that it hangs, and goes on once there is no such file
//     pulledat NTH
//         the tokens are pulled out at the NTH call and stay out: C_GetSlotList finds no token, and
//         functions that need one answer CKR_DEVICE_REMOVED
//     pulledwhile FILE
//         the tokens are out for as long as there is such a file
//     record FILE
//         each answered call is appended to that file: its name, a blank, and the answer in decimal
//
// Numbers are decimal, or hexadecimal with 0x. Functions that end something (C_Finalize,
// C_CloseSession, C_FindObjectsFinal) end it whatever they answer.
#include "faketokenscript.h"

#include "hex.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

namespace faketoken {

namespace {

using testsupport::fromHex;

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

Bytes fileOrHex(const std::string& value) {
    if (!value.starts_with('@'))
        return fromHex(value);
    std::ifstream file(text(value.substr(1)), std::ios::binary);
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

CK_ATTRIBUTE_TYPE attributeType(const std::string& name) {
    if (name == "value")
        return CKA_VALUE;
    if (name == "id")
        return CKA_ID;
    if (name == "label")
        return CKA_LABEL;
    throw std::runtime_error("unknown attribute " + name);
}

void addLie(std::vector<Object>& objects, const Statement& statement) {
    if (objects.empty())
        throw std::runtime_error("there is no object");
    Value& value = objects.back().attributes[attributeType(statement[1])];
    if (const auto length = statement.find("claimed"))
        value.claimedLength = number(*length);
    if (const auto length = statement.find("filled"))
        value.filledLength = number(*length);
}

/// Applies a statement about the objects of a token.
/// \returns whether the statement is one about objects
bool applyToObjects(std::vector<Object>& objects, const Statement& statement) {
    const std::string& verb = statement[0];
    if (verb == "certificate")
        objects.push_back(certificate(fileOrHex(statement.find("value").value_or("")),
                                      fromHex(statement.find("id").value_or("")),
                                      text(statement.find("label").value_or(""))));
    else if (verb == "key")
        objects.push_back(privateKey(fromHex(statement.find("id").value_or(""))));
    else if (verb == "lie")
        addLie(objects, statement);
    else
        return false;
    return true;
}

[[noreturn]] void giveUp(const std::string& path, int line, const char* reason) {
    std::fprintf(stderr, "%s:%d: %s\n", path.c_str(), line, reason);
    std::abort();
}

/// Calls `apply` with each statement of a file; ends the process at one that throws.
/// \returns whether the file can be read
template <class Apply>
bool applyStatements(const std::string& path, Apply apply) {
    std::ifstream file(path);
    // At the moment in which another one takes its place, a file is locked.
    while (!file && std::filesystem::exists(path)) {
        std::this_thread::yield();
        file.clear();
        file.open(path);
    }
    if (!file)
        return false;
    std::string line;
    for (int lineNumber = 1; std::getline(file, line); ++lineNumber) {
        try {
            if (const Statement statement(line); !statement.empty())
                apply(statement);
        } catch (const std::exception& error) {
            giveUp(path, lineNumber, error.what());
        }
    }
    return true;
}

[[noreturn]] void refuse(const Statement& statement) {
    throw std::runtime_error("unknown word " + statement[0]);
}

std::optional<std::vector<Object>> objectsIn(const std::string& path) {
    std::vector<Object> objects;
    const bool isThere = applyStatements(path, [&](const Statement& statement) {
        if (!applyToObjects(objects, statement))
            refuse(statement);
    });
    return isThere ? std::optional(std::move(objects)) : std::nullopt;
}

Condition exists(const std::string& path) {
    return [path] {
        std::error_code ignored;
        return std::filesystem::exists(path, ignored);
    };
}

/// A hook that does not let one function go on for as long as the condition holds.
std::function<std::optional<CK_RV>(const Call&)> hangsWhile(Condition condition,
                                                            std::string function) {
    return [condition = std::move(condition),
            function = std::move(function)](const Call& call) -> std::optional<CK_RV> {
        if (call.function == function && condition()) {
            std::fprintf(stderr, "%s hangs\n", function.c_str());
            std::fflush(stderr);
            while (condition())
                std::this_thread::yield();
        }
        return std::nullopt;
    };
}

class Reader {
public:
    void apply(const Statement& statement) {
        if (!applyToObjects(control.slots.back().objects, statement) && !applyToSlots(statement) &&
            !applyToAnswers(statement))
            refuse(statement);
    }

    Control control;

private:
    bool applyToSlots(const Statement& statement) {
        const std::string& verb = statement[0];
        if (verb == "slot")
            addSlot(makeSlot(statement));
        else if (verb == "objectsfrom")
            takeObjectsFrom(text(statement[1]));
        else if (verb == "slotcount")
            control.claimedSlotCount = number(statement[1]);
        else if (verb == "foundcount")
            control.claimedFoundCount = number(statement[1]);
        else
            return false;
        return true;
    }
    bool applyToAnswers(const Statement& statement) {
        const std::string& verb = statement[0];
        if (verb == "fail")
            control.fail(statement[1], number(statement[2]), number(statement[3]));
        else if (verb == "failany")
            control.failAny(number(statement[1]), number(statement[2]));
        else if (verb == "failfrom")
            control.failFrom(number(statement[1]), number(statement[2]));
        else if (verb == "failwhile")
            control.failWhile(exists(text(statement[1])), statement[2], number(statement[3]));
        else if (verb == "hangwhile")
            control.hook = hangsWhile(exists(text(statement[1])), statement[2]);
        else if (verb == "pulledat")
            control.pullAt(number(statement[1]));
        else if (verb == "pulledwhile")
            control.pullWhile(exists(text(statement[1])));
        else if (verb == "record")
            recordFile = text(statement[1]);
        else
            return false;
        return true;
    }

    void addSlot(Slot slot) {
        if (!hasSlots_)
            control.slots.clear();
        hasSlots_ = true;
        control.slots.push_back(std::move(slot));
    }
    void takeObjectsFrom(const std::string& path) {
        if (!objectsIn(path))
            throw std::runtime_error("cannot read " + path);
        control.slots.back().currentObjects = [path] { return objectsIn(path); };
    }

    bool hasSlots_ = false;
};

} // namespace

Control scriptedControl() {
    Reader reader;
    const char* const path = std::getenv("FAKETOKEN_SCRIPT");
    if (path &&
        !applyStatements(path, [&](const Statement& statement) { reader.apply(statement); }))
        giveUp(path, 0, "cannot be read");
    return std::move(reader.control);
}

void recordToFile(const Call& call) {
    if (!recordFile.empty())
        std::ofstream(recordFile, std::ios::app) << call.function << ' ' << call.answer << '\n';
}

} // namespace faketoken
