// A hostile PKCS #11 module: the input says what is on the token, and with which lies the module
// answers each call.
#include "asn1error.h"
#include "bufcodecs.h"
#include "certbuilder.h"
#include "certstoreupdatererror.h"
#include "fuzztarget.h"
#include "libraries.h"
#include "loadedtoken.h"
#include "pkcs11error.h"
#include "pkcs11helper.h"

#include <iterator>

namespace fuzz {

namespace {

using faketoken::Bytes;
using faketoken::Call;
using faketoken::Control;
using pkcs11::certstoreupdater::CertMap;
using pkcs11::certstoreupdater::CertStoreUpdaterError_TokenNotInitialized;
using pkcs11::certstoreupdater::CertStoreUpdaterError_TokenNotPresent;
using pkcs11::certstoreupdater::Pkcs11Helper;
using testsupport::CertBuilder;

constexpr CK_ATTRIBUTE_TYPE attributeTypes[] = {CKA_VALUE, CKA_ID, CKA_LABEL};

// What a module might answer; CKR_OK is the lie of having done something.
constexpr CK_RV answers[] = {
    CKR_OK,
    CKR_HOST_MEMORY,
    CKR_GENERAL_ERROR,
    CKR_ARGUMENTS_BAD,
    CKR_ATTRIBUTE_SENSITIVE,
    CKR_ATTRIBUTE_TYPE_INVALID,
    CKR_ATTRIBUTE_VALUE_INVALID,
    CKR_DEVICE_REMOVED,
    CKR_PIN_INCORRECT,
    CKR_SESSION_HANDLE_INVALID,
    CKR_TOKEN_NOT_PRESENT,
    CKR_USER_ALREADY_LOGGED_IN,
    CKR_BUFFER_TOO_SMALL,
    CKR_CRYPTOKI_NOT_INITIALIZED,
    CKR_CRYPTOKI_ALREADY_INITIALIZED,
    CKR_VENDOR_DEFINED,
};

// Lengths and counts at and around the limits that are checked somewhere.
constexpr CK_ULONG numbers[] = {
    0,
    1,
    2,
    15,
    16,
    63,
    64,
    65,
    0xFFFF,
    0x10000,
    0x10001,
    16 * 1024 * 1024 + 1,
    0x7FFF'FFFF,
    0xFFFF'FFFF,
    ~CK_ULONG{0} - 1,
    ~CK_ULONG{0},
};

class HostileModule {
public:
    HostileModule(Input script, Control& control) : script_(script), control_(control) {
        control_.slots.assign(takeByte(script_) % 4, faketoken::Slot{});
        for (std::size_t i = 0; i != control_.slots.size(); ++i)
            control_.slots[i].id = static_cast<CK_SLOT_ID>(i + 1);
        if (!control_.slots.empty())
            for (unsigned count = takeByte(script_) % 8; count != 0; --count)
                objects().push_back(takeObject());
        control_.hook = [this](const Call&) { return tamper(); };
    }
    ~HostileModule() { control_.hook = nullptr; }
    HostileModule(const HostileModule&) = delete;
    HostileModule& operator=(const HostileModule&) = delete;

private:
    std::vector<faketoken::Object>& objects() { return control_.slots.front().objects; }

    Bytes takeBytes(std::size_t size) {
        Bytes bytes;
        for (; size != 0 && !script_.empty(); --size)
            bytes.push_back(takeByte(script_));
        return bytes;
    }

    CK_ULONG takeNumber() {
        const unsigned char choice = takeByte(script_);
        return choice < std::size(numbers) ? numbers[choice] : choice;
    }

    faketoken::Object takeObject() {
        const unsigned char kind = takeByte(script_);
        const Bytes id = takeBytes(kind >> 6);
        switch (kind & 7) {
        case 0:
            return faketoken::certificate(CertBuilder().names("A", "B").build(), id, "leaf");
        case 1:
            return faketoken::certificate(CertBuilder().names("A", "A").build(), id, "self");
        case 2:
            return faketoken::certificate(
                CertBuilder().extensions({testsupport::keyUsage({5})}).build(), id, "authority");
        case 3:
            return faketoken::certificate(
                CertBuilder().extensions({testsupport::extension("2.5.29.15", {0x05})}).build(), id,
                "malformed usage");
        case 4:
            return faketoken::certificate(takeBytes(takeByte(script_)), id, "any bytes");
        default:
            return faketoken::privateKey(id);
        }
    }

    /// A value of an object that is there, or one that nobody reads.
    faketoken::Value& takeValue() {
        static faketoken::Value nobodys;
        const unsigned char choice = takeByte(script_);
        if (control_.slots.empty() || objects().empty())
            return nobodys;
        const CK_ATTRIBUTE_TYPE type = attributeTypes[choice % std::size(attributeTypes)];
        return objects()[(choice >> 4) % objects().size()].attributes[type];
    }

    /// Called before each call: gives the answer, or changes something that the call's own answer
    /// depends on.
    std::optional<CK_RV> tamper() {
        // A lie about a count holds for one call only, or a search would never end.
        control_.claimedSlotCount.reset();
        control_.claimedFoundCount.reset();
        switch (takeByte(script_) % 16) {
        case 1:
            return answers[takeByte(script_) % std::size(answers)];
        case 2:
            control_.claimedSlotCount = takeNumber();
            break;
        case 3:
            control_.claimedFoundCount = takeNumber();
            break;
        case 4:
            takeValue().claimedLength = takeNumber();
            break;
        case 5:
            takeValue().filledLength = takeNumber();
            break;
        case 6: {
            const CK_ULONG size = takeNumber();
            takeValue().bytes.resize(size <= 0x10001 ? size : 3);
            break;
        }
        case 7:
            takeValue().bytes = takeBytes(takeByte(script_) % 32);
            break;
        case 8:
            if (!control_.slots.empty() && !objects().empty())
                objects().back().attributes.erase(
                    attributeTypes[takeByte(script_) % std::size(attributeTypes)]);
            break;
        case 9:
            if (!control_.slots.empty())
                objects().clear();
            break;
        case 10:
            if (!control_.slots.empty())
                control_.slots.front().flags = takeByte(script_);
            break;
        case 11:
            if (!control_.slots.empty())
                control_.slots.front().tokenPresent = (takeByte(script_) & 1) != 0;
            break;
        default:
            break;
        }
        return std::nullopt;
    }

    Input script_;
    Control& control_;
};

/// Runs an operation to its end or to a documented exception.
template <class Operation>
void attempt(Operation operation) {
    try {
        operation();
    } catch (const pkcs11::Pkcs11Error_CryptokiError& error) {
        require(error.param(L"CRYPTOKY_ERROR_CODE") != nullptr, "the answer is not told");
    } catch (const CertStoreUpdaterError_TokenNotPresent&) {
    } catch (const CertStoreUpdaterError_TokenNotInitialized&) {
    } catch (const asn1::QuorError_Asn1_Decode&) {
    } catch (const buffer::BufferError_InvalidEncodingUnit&) {
    }
}

void checkNames(const CertMap& certs) {
    for (const auto& [name, item] : certs) {
        const auto expected = L"CKAIDHEX:" + std::wstring(buffer::hexEncode(item.id).c_str());
        require(name == buffer::Buffer<wchar_t>(expected.c_str()), "it has another container name");
        require(item.certificate.hasValue(), "it has no certificate");
    }
}

void readAll(const Pkcs11Helper& helper) {
    attempt([&] {
        const auto package = helper.getAllCerts();
        for (const CertMap* certs : {&package->selfSignedCerts, &package->caCerts,
                                     &package->certsWithPrivateKey, &package->otherCerts})
            checkNames(*certs);
    });
    attempt([&] { checkNames(*helper.getCertsWithPrivateKey()); });
    attempt([&] { checkNames(*helper.getOtherCerts()); });
}

void update() {
    const unsigned char pin[] = {'1', '2', '3', '4'};
    Pkcs11Helper helper(faketoken::modulePath());
    const auto login = [&] { helper.login({pin, sizeof(pin)}); };
    // If the first login fails there may be no session, without which a caller must not read. After
    // the second one there is a session, whether it fails or not.
    login();
    readAll(helper);
    attempt(login);
    readAll(helper);
}

/// How often a function was called and answered that it succeeded.
std::size_t successes(const Control& control, std::string_view function) {
    std::size_t count = 0;
    for (const Call& call : control.calls)
        count += call.function == function && call.answer == CKR_OK;
    return count;
}

void checkBalance(const Control& control) {
    require(control.count("C_CloseSession") == successes(control, "C_OpenSession"),
            "not every session is closed once");
    require(control.count("C_FindObjectsFinal") == successes(control, "C_FindObjectsInit"),
            "not every search is ended once");
    require(control.count("C_Finalize") == successes(control, "C_Initialize"),
            "what was initialised is not finalised once");
    require(control.sessionsLeftAtFinalize == 0 && control.openSessions() == 0,
            "a session is left open");
}

/// Only a module that was unloaded is initialised when it is loaded again.
void checkUnloaded(Control& control) {
    control = Control();
    pkcs11::Libraries& libraries = pkcs11::Libraries::instance();
    libraries.unload(libraries.load(faketoken::modulePath()));
    require(control.count("C_Initialize") == 1, "the module is still loaded");
}

} // namespace

void hostilemodule(Input input) {
    // This reference is kept, because loading the file again for each input would take most of the
    // time.
    static const faketoken::LoadedToken token;
    *token = Control();
    {
        const HostileModule hostile(input, *token);
        attempt(update);
        checkBalance(*token);
    }
    checkUnloaded(*token);
}

} // namespace fuzz
