// What a test scripts and reads of the fake token: the one object that the test program and the
// module share.
//
// The module behaves as PKCS #11 says unless it is told otherwise. A test loads it before the
// code under test does (loadedtoken.h), fills in slots, objects and failures, runs the code under
// test on the same file, and then reads what was called and what was left open:
//
//     LoadedToken token;
//     token->slots.front().objects = {certificate(der, {0x01}, "label"), privateKey({0x01})};
//     token->fail("C_Login", 1, CKR_PIN_LOCKED);
//     ...
//     EXPECT_EQ(token->count("C_Login"), 1u);
//     EXPECT_EQ(token->openSessions(), 0u);
//
// A module in another process is scripted by a file; see faketokenscript.cpp.
//
// Nothing here is locked: one thread scripts, calls and reads.
#pragma once

#include <p11-kit/pkcs11.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <iterator>
#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace faketoken {

using Bytes = std::vector<unsigned char>;

/// The functions that the module implements, by their names in PKCS #11, first those that reading
/// a token calls. All others answer CKR_FUNCTION_NOT_SUPPORTED.
inline constexpr std::string_view functionNames[] = {
    "C_GetFunctionList", "C_Initialize",  "C_Finalize",         "C_GetSlotList",
    "C_GetTokenInfo",    "C_OpenSession", "C_CloseSession",     "C_Login",
    "C_FindObjectsInit", "C_FindObjects", "C_FindObjectsFinal", "C_GetAttributeValue",
    "C_GetInfo",
};
/// Those that reading a token calls. A module is asked for C_GetInfo only when it is loaded again.
inline constexpr std::span readingFunctionNames(functionNames, std::size(functionNames) - 1);

/// The value of an attribute, and the lies that the module tells about it.
struct Value {
    Bytes bytes;
    /// ulValueLen when only the length is asked for, if not the true one. -1 is
    /// CK_UNAVAILABLE_INFORMATION.
    std::optional<CK_ULONG> claimedLength;
    /// ulValueLen after the value was filled in, if not the true one. Of the value itself no more
    /// is written than there is room for.
    std::optional<CK_ULONG> filledLength;

    bool operator==(const Value&) const = default;

    Value() = default;
    Value(Bytes value) : bytes(std::move(value)) {}

    /// A CK_ULONG.
    static Value number(CK_ULONG number) {
        const auto* first = reinterpret_cast<const unsigned char*>(&number);
        return Value(Bytes(first, first + sizeof(number)));
    }
    static Value boolean(bool truth) { return Value(Bytes{truth ? CK_BBOOL{1} : CK_BBOOL{0}}); }
    static Value text(std::string_view text) { return Value(Bytes(text.begin(), text.end())); }
};

/// An object of a token. One without an attribute answers CKR_ATTRIBUTE_TYPE_INVALID for it; one
/// with an empty value answers a length of 0.
struct Object {
    std::map<CK_ATTRIBUTE_TYPE, Value> attributes;
    bool isPrivate = false; ///< found only after login
    bool gone = false;      ///< was on the token; its handle stands for nothing any more
};

/// An X.509 certificate object. Leave out what it shall not have by erasing it afterwards.
inline Object certificate(Bytes value, Bytes id, std::string_view label) {
    Object object;
    object.attributes[CKA_CLASS] = Value::number(CKO_CERTIFICATE);
    object.attributes[CKA_TOKEN] = Value::boolean(true);
    object.attributes[CKA_CERTIFICATE_TYPE] = Value::number(CKC_X_509);
    object.attributes[CKA_VALUE] = Value(std::move(value));
    object.attributes[CKA_ID] = Value(std::move(id));
    object.attributes[CKA_LABEL] = Value::text(label);
    return object;
}

/// A private key object, found only after login.
inline Object privateKey(Bytes id) {
    Object object;
    object.attributes[CKA_CLASS] = Value::number(CKO_PRIVATE_KEY);
    object.attributes[CKA_TOKEN] = Value::boolean(true);
    object.attributes[CKA_ID] = Value(std::move(id));
    object.isPrivate = true;
    return object;
}

/// A slot and the token in it.
struct Slot {
    CK_SLOT_ID id = 1;
    bool tokenPresent = true;
    CK_FLAGS flags =
        CKF_RNG | CKF_LOGIN_REQUIRED | CKF_USER_PIN_INITIALIZED | CKF_TOKEN_INITIALIZED;
    /// Texts of the token information; padded with blanks, cut where the field ends.
    std::string label = "Fake token";
    std::string manufacturerId = "Test support";
    std::string model = "Scripted";
    std::string serialNumber = "0001";
    Bytes pin = {'1', '2', '3', '4'};
    /// Whether a login counts for its session only. PKCS #11 has it count for all sessions of the
    /// process until the last of them is closed, so that a second one is refused.
    bool loginPerSession = false;
    std::vector<Object> objects;
    /// If set, asked at each C_FindObjectsInit what is on the token from then on; no answer means
    /// what was there before. An object that stays keeps its handle.
    std::function<std::optional<std::vector<Object>>()> currentObjects;
};

/// An attribute as it stood in a template that the module was given.
struct TemplateEntry {
    CK_ATTRIBUTE_TYPE type;
    bool hasRoom;    ///< whether pValue was there
    CK_ULONG length; ///< ulValueLen
    Bytes bytes;     ///< what stood at pValue; of search templates only
};

/// A call that the module received. Members that the function has no parameter for keep their
/// defaults.
struct Call {
    std::string function;
    CK_RV answer = CKR_OK;
    CK_SLOT_ID slot = 0;
    CK_SESSION_HANDLE session = 0;
    CK_FLAGS flags = 0; ///< of C_OpenSession, or in the arguments of C_Initialize
    CK_USER_TYPE userType = 0;
    const void* pin = nullptr; ///< the pointer itself
    Bytes pinBytes;
    CK_OBJECT_HANDLE object = 0;
    std::vector<TemplateEntry> entries;
    bool tokenPresent = false;
    bool hasRoom = false; ///< whether C_GetSlotList got a pointer to slot ids
    CK_ULONG count = 0;   ///< for how many slot ids or object handles there was room
};

/// A session that the module has open. Their handles begin with the same number after each
/// C_Initialize, as those of real modules do.
struct Session {
    CK_SLOT_ID slot = 0;
    CK_FLAGS flags = 0;
    bool loggedIn = false;
    bool searching = false;
    std::vector<CK_OBJECT_HANDLE> found; ///< what the search has still to give out
};

/// Whether something is so at the moment.
using Condition = std::function<bool()>;

/// Scripts the module and tells what happened to it. New with every loading of the module.
class Control {
public:
    /// One slot with an empty token to begin with.
    std::vector<Slot> slots{Slot{}};

    /// Called before each function does anything, after the call was recorded. An answer other
    /// than none is the function's.
    std::function<std::optional<CK_RV>(const Call&)> hook;

    /// At most so many handles for each C_FindObjects.
    CK_ULONG objectsPerFind = 0xFFFF'FFFF;

    /// Lies: the count that C_GetSlotList and C_FindObjects answer when they fill a list.
    std::optional<CK_ULONG> claimedSlotCount;
    std::optional<CK_ULONG> claimedFoundCount;
    /// C_FindObjects finds the first object again and again.
    bool endlessSearch = false;
    /// C_GetFunctionList succeeds and gives no list.
    bool nullFunctionList = false;
    /// Calls of C_Login record the bytes of the PIN. Without, no copy of them is made.
    bool recordPins = true;
    /// This function is a null pointer in the list; set it before the list is fetched.
    std::string missingFunction;

    /// Every call in order.
    std::vector<Call> calls;
    bool initialized = false;
    std::map<CK_SESSION_HANDLE, Session> sessions;
    /// Sessions that were open when C_Finalize was called.
    std::size_t sessionsLeftAtFinalize = 0;

    /// The `nth` call of a function from now on, counted from 1, answers so. It then does nothing
    /// else, unless it is one that ends something (C_Finalize, C_CloseSession,
    /// C_FindObjectsFinal): that ends all the same.
    void fail(std::string_view function, std::size_t nth, CK_RV answer) {
        requireFunction(function);
        const std::size_t position = count(function) + nth;
        failures_.push_back({{std::string(function), position, position, {}}, answer});
    }
    /// The same for the `nth` call of any function.
    void failAny(std::size_t nth, CK_RV answer) {
        const std::size_t position = calls.size() + nth;
        failures_.push_back({{{}, position, position, {}}, answer});
    }
    /// The same for the `nth` call of any function and every call after it.
    void failFrom(std::size_t nth, CK_RV answer) {
        failures_.push_back({{{}, calls.size() + nth, forever, {}}, answer});
    }
    /// The same for each call of a function at which the condition holds.
    void failWhile(Condition condition, std::string_view function, CK_RV answer) {
        requireFunction(function);
        failures_.push_back({{std::string(function), 0, forever, std::move(condition)}, answer});
    }

    /// The tokens are pulled out of their slots at the `nth` call of any function from now on, and
    /// stay out. Their sessions end. C_GetSlotList finds no token, C_GetFunctionList, C_Initialize,
    /// C_Finalize and C_GetInfo work, all other functions answer CKR_DEVICE_REMOVED.
    void pullAt(std::size_t nth) { pulls_.push_back({{}, calls.size() + nth, forever, {}}); }
    /// The tokens are out, likewise, at each call at which the condition holds, and back after it.
    void pullWhile(Condition condition) {
        pulls_.push_back({{}, 0, forever, std::move(condition)});
    }
    /// Whether the tokens were out at the last call.
    bool tokensPulled() const { return tokensPulled_; }

    /// Forgets the calls so far and what is scripted to fail or to be pulled; what is open stays
    /// open.
    void forgetCalls() {
        calls.clear();
        failures_.clear();
        pulls_.clear();
    }

    /// How often a function was called.
    std::size_t count(std::string_view function) const {
        return static_cast<std::size_t>(
            std::count_if(calls.begin(), calls.end(),
                          [&](const Call& call) { return call.function == function; }));
    }
    /// The calls of one function, in order.
    std::vector<Call> callsOf(std::string_view function) const {
        std::vector<Call> result;
        std::copy_if(calls.begin(), calls.end(), std::back_inserter(result),
                     [&](const Call& call) { return call.function == function; });
        return result;
    }
    /// The names of the functions that were called, in order.
    std::vector<std::string> sequence() const {
        std::vector<std::string> names;
        for (const Call& call : calls)
            names.push_back(call.function);
        return names;
    }

    std::size_t openSessions() const { return sessions.size(); }
    std::size_t activeSearches() const {
        return static_cast<std::size_t>(
            std::count_if(sessions.begin(), sessions.end(),
                          [](const auto& session) { return session.second.searching; }));
    }

    /// For the module: looks at a call that was just recorded whether the tokens are out.
    void pullTokens() {
        tokensPulled_ = std::any_of(pulls_.begin(), pulls_.end(),
                                    [&](const Moments& pull) { return isNow(pull); });
        if (tokensPulled_)
            sessions.clear();
    }
    /// For the module: what a call that was just recorded is scripted to answer.
    std::optional<CK_RV> scriptedAnswer(const Call& call) const {
        for (const Failure& failure : failures_)
            if ((failure.moments.function.empty() || failure.moments.function == call.function) &&
                isNow(failure.moments))
                return failure.answer;
        if (tokensPulled_ && needsToken(call.function))
            return CK_RV{CKR_DEVICE_REMOVED};
        return std::nullopt;
    }

private:
    static constexpr std::size_t forever = static_cast<std::size_t>(-1);

    /// From one call to another, counted from the first one on, as long as the condition holds.
    struct Moments {
        std::string function; ///< whose calls are counted; empty: all
        std::size_t first;
        std::size_t last;
        Condition condition; ///< none: always
    };
    struct Failure {
        Moments moments;
        CK_RV answer;
    };

    bool isNow(const Moments& moments) const {
        const std::size_t now = moments.function.empty() ? calls.size() : count(moments.function);
        return now >= moments.first && now <= moments.last &&
               (!moments.condition || moments.condition());
    }
    static bool needsToken(std::string_view function) {
        return function != "C_GetFunctionList" && function != "C_Initialize" &&
               function != "C_Finalize" && function != "C_GetInfo" && function != "C_GetSlotList";
    }
    static void requireFunction(std::string_view function) {
        if (std::find(std::begin(functionNames), std::end(functionNames), function) ==
            std::end(functionNames))
            throw std::invalid_argument("the fake token has no " + std::string(function));
    }

    std::vector<Failure> failures_;
    std::vector<Moments> pulls_;
    bool tokensPulled_ = false;
};

/// The name and the type of the function that the module exports besides C_GetFunctionList.
inline constexpr char controlFunctionName[] = "fakeTokenControl";
using ControlFunction = Control* (*)();

} // namespace faketoken
