// The module: as much of PKCS #11 as a reader of certificates needs, on the objects that a test put
// into the module's control.
#include "faketoken.h"

#include "faketokenscript.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#ifdef _WIN32
#define FAKETOKEN_EXPORT extern "C" __declspec(dllexport)
#else
#define FAKETOKEN_EXPORT extern "C" __attribute__((visibility("default")))
#endif

namespace faketoken {

namespace {

Control& control() {
    static Control instance = scriptedControl();
    return instance;
}

bool endsSomething(const std::string& function) {
    return function == "C_Finalize" || function == "C_CloseSession" ||
           function == "C_FindObjectsFinal";
}

// Records the call, then lets the script answer it, or else does the function's own work.
template <class Work>
CK_RV answer(Call call, Work work) {
    Control& fake = control();
    fake.calls.push_back(call);
    const std::size_t position = fake.calls.size() - 1;
    std::optional<CK_RV> result = fake.hook ? fake.hook(call) : std::nullopt;
    fake.pullTokens();
    if (!result)
        result = fake.scriptedAnswer(call);
    if (!result)
        result = work();
    else if (endsSomething(call.function))
        work();
    // The hook may have made the list of calls shorter.
    if (position < fake.calls.size())
        fake.calls[position].answer = *result;
    call.answer = *result;
    recordToFile(call);
    return *result;
}

template <class Work>
CK_RV answerInitialized(Call call, Work work) {
    return answer(std::move(call), [&]() -> CK_RV {
        return control().initialized ? work() : CKR_CRYPTOKI_NOT_INITIALIZED;
    });
}

template <class Work>
CK_RV answerInSession(Call call, Work work) {
    const CK_SESSION_HANDLE handle = call.session;
    return answerInitialized(std::move(call), [&]() -> CK_RV {
        const auto session = control().sessions.find(handle);
        return session == control().sessions.end() ? CKR_SESSION_HANDLE_INVALID
                                                   : work(session->second);
    });
}

Call makeCall(const char* function) {
    Call call;
    call.function = function;
    return call;
}

Call makeCall(const char* function, CK_SESSION_HANDLE session) {
    Call call = makeCall(function);
    call.session = session;
    return call;
}

Slot* findSlot(CK_SLOT_ID id) {
    for (Slot& slot : control().slots)
        if (slot.id == id)
            return &slot;
    return nullptr;
}

bool isLoggedIn(const Session& session) {
    if (findSlot(session.slot)->loginPerSession)
        return session.loggedIn;
    for (const auto& [handle, other] : control().sessions)
        if (other.slot == session.slot && other.loggedIn)
            return true;
    return false;
}

template <std::size_t size>
void pad(CK_UTF8CHAR (&field)[size], const std::string& text) {
    std::memset(field, ' ', size);
    std::memcpy(field, text.data(), std::min(size, text.size()));
}

constexpr CK_SESSION_HANDLE noHandleYet = 0x1000;
CK_SESSION_HANDLE lastSessionHandle = noHandleYet;

CK_RV initialize(void* arguments) {
    Call call = makeCall("C_Initialize");
    if (arguments)
        call.flags = static_cast<CK_C_INITIALIZE_ARGS*>(arguments)->flags;
    return answer(std::move(call), [&]() -> CK_RV {
        if (control().initialized)
            return CKR_CRYPTOKI_ALREADY_INITIALIZED;
        control().initialized = true;
        lastSessionHandle = noHandleYet;
        return CKR_OK;
    });
}

CK_RV finalize(void*) {
    return answerInitialized(makeCall("C_Finalize"), [&]() -> CK_RV {
        control().sessionsLeftAtFinalize += control().sessions.size();
        control().sessions.clear();
        control().initialized = false;
        return CKR_OK;
    });
}

CK_RV getInfo(CK_INFO* info) {
    return answerInitialized(makeCall("C_GetInfo"), [&]() -> CK_RV {
        *info = CK_INFO{};
        info->cryptokiVersion = {2, 40};
        return CKR_OK;
    });
}

CK_RV getSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID* list, CK_ULONG* count) {
    Call call = makeCall("C_GetSlotList");
    call.tokenPresent = tokenPresent != CK_FALSE;
    call.hasRoom = list != nullptr;
    call.count = *count;
    return answerInitialized(std::move(call), [&]() -> CK_RV {
        std::vector<CK_SLOT_ID> ids;
        for (const Slot& slot : control().slots)
            if ((slot.tokenPresent && !control().tokensPulled()) || !tokenPresent)
                ids.push_back(slot.id);
        const CK_ULONG room = std::exchange(*count, static_cast<CK_ULONG>(ids.size()));
        if (!list)
            return CKR_OK;
        if (room < ids.size())
            return CKR_BUFFER_TOO_SMALL;
        std::copy(ids.begin(), ids.end(), list);
        *count = control().claimedSlotCount.value_or(*count);
        return CKR_OK;
    });
}

CK_RV getTokenInfo(CK_SLOT_ID id, CK_TOKEN_INFO* info) {
    Call call = makeCall("C_GetTokenInfo");
    call.slot = id;
    return answerInitialized(std::move(call), [&]() -> CK_RV {
        const Slot* slot = findSlot(id);
        if (!slot)
            return CKR_SLOT_ID_INVALID;
        if (!slot->tokenPresent)
            return CKR_TOKEN_NOT_PRESENT;
        *info = CK_TOKEN_INFO{};
        pad(info->label, slot->label);
        pad(info->manufacturerID, slot->manufacturerId);
        pad(info->model, slot->model);
        pad(info->serialNumber, slot->serialNumber);
        info->flags = slot->flags;
        return CKR_OK;
    });
}

CK_RV openSession(CK_SLOT_ID id, CK_FLAGS flags, void*, CK_NOTIFY, CK_SESSION_HANDLE* handle) {
    Call call = makeCall("C_OpenSession");
    call.slot = id;
    call.flags = flags;
    return answerInitialized(std::move(call), [&]() -> CK_RV {
        const Slot* slot = findSlot(id);
        if (!slot)
            return CKR_SLOT_ID_INVALID;
        if (!slot->tokenPresent)
            return CKR_TOKEN_NOT_PRESENT;
        if (!(flags & CKF_SERIAL_SESSION))
            return CKR_SESSION_PARALLEL_NOT_SUPPORTED;
        *handle = ++lastSessionHandle;
        Session session;
        session.slot = id;
        session.flags = flags;
        control().sessions.emplace(*handle, session);
        return CKR_OK;
    });
}

CK_RV closeSession(CK_SESSION_HANDLE handle) {
    return answerInSession(makeCall("C_CloseSession", handle), [&](Session& session) -> CK_RV {
        // The login outlives the session that made it for as long as the token has another one.
        const Session closed = session;
        control().sessions.erase(handle);
        if (closed.loggedIn && !findSlot(closed.slot)->loginPerSession)
            for (auto& [otherHandle, other] : control().sessions)
                if (other.slot == closed.slot)
                    other.loggedIn = true;
        return CKR_OK;
    });
}

CK_RV login(CK_SESSION_HANDLE handle, CK_USER_TYPE userType, CK_UTF8CHAR* pin, CK_ULONG length) {
    Call call = makeCall("C_Login", handle);
    call.userType = userType;
    call.pin = pin;
    if (pin && control().recordPins)
        call.pinBytes.assign(pin, pin + length);
    return answerInSession(std::move(call), [&](Session& session) -> CK_RV {
        if (isLoggedIn(session))
            return CKR_USER_ALREADY_LOGGED_IN;
        if (userType != CKU_USER)
            return CKR_USER_TYPE_INVALID;
        const Bytes& right = findSlot(session.slot)->pin;
        if (!pin || !std::equal(pin, pin + length, right.begin(), right.end()))
            return CKR_PIN_INCORRECT;
        session.loggedIn = true;
        return CKR_OK;
    });
}

std::vector<TemplateEntry> recorded(const CK_ATTRIBUTE* entries, CK_ULONG count, bool withBytes) {
    std::vector<TemplateEntry> result;
    for (CK_ULONG i = 0; i != count; ++i) {
        const auto* value = static_cast<const unsigned char*>(entries[i].pValue);
        TemplateEntry entry{entries[i].type, value != nullptr, entries[i].ulValueLen, {}};
        if (withBytes && value)
            entry.bytes.assign(value, value + entry.length);
        result.push_back(std::move(entry));
    }
    return result;
}

bool matches(const Object& object, const std::vector<TemplateEntry>& wanted) {
    return std::all_of(wanted.begin(), wanted.end(), [&](const TemplateEntry& entry) {
        const auto attribute = object.attributes.find(entry.type);
        return attribute != object.attributes.end() && attribute->second.bytes == entry.bytes;
    });
}

bool isSame(const Object& one, const Object& other) {
    return one.attributes == other.attributes && one.isPrivate == other.isPrivate;
}

// An object's handle is its position, so objects keep theirs, also those that are gone.
void replaceObjects(std::vector<Object>& objects, std::vector<Object> current) {
    for (Object& object : objects) {
        const auto same =
            std::find_if(current.begin(), current.end(),
                         [&](const Object& candidate) { return isSame(object, candidate); });
        object.gone = same == current.end();
        if (!object.gone)
            current.erase(same);
    }
    std::move(current.begin(), current.end(), std::back_inserter(objects));
}

CK_RV findObjectsInit(CK_SESSION_HANDLE handle, CK_ATTRIBUTE* entries, CK_ULONG count) {
    Call call = makeCall("C_FindObjectsInit", handle);
    call.entries = recorded(entries, count, true);
    const std::vector<TemplateEntry> wanted = call.entries;
    return answerInSession(std::move(call), [&](Session& session) -> CK_RV {
        if (session.searching)
            return CKR_OPERATION_ACTIVE;
        session.searching = true;
        session.found.clear();
        Slot& slot = *findSlot(session.slot);
        if (auto current = slot.currentObjects ? slot.currentObjects() : std::nullopt)
            replaceObjects(slot.objects, std::move(*current));
        const std::vector<Object>& objects = slot.objects;
        for (std::size_t i = 0; i != objects.size(); ++i)
            if (!objects[i].gone && matches(objects[i], wanted) &&
                (!objects[i].isPrivate || isLoggedIn(session)))
                session.found.push_back(static_cast<CK_OBJECT_HANDLE>(i + 1));
        return CKR_OK;
    });
}

CK_RV findObjects(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE* list, CK_ULONG room,
                  CK_ULONG* count) {
    Call call = makeCall("C_FindObjects", handle);
    call.count = room;
    return answerInSession(std::move(call), [&](Session& session) -> CK_RV {
        if (!session.searching)
            return CKR_OPERATION_NOT_INITIALIZED;
        const Control& fake = control();
        if (fake.endlessSearch) {
            std::fill_n(list, room, CK_OBJECT_HANDLE{1});
            *count = room;
            return CKR_OK;
        }
        const std::size_t given =
            std::min<std::size_t>({session.found.size(), room, fake.objectsPerFind});
        std::copy_n(session.found.begin(), given, list);
        session.found.erase(session.found.begin(),
                            session.found.begin() + static_cast<std::ptrdiff_t>(given));
        *count = fake.claimedFoundCount.value_or(static_cast<CK_ULONG>(given));
        return CKR_OK;
    });
}

CK_RV findObjectsFinal(CK_SESSION_HANDLE handle) {
    return answerInSession(makeCall("C_FindObjectsFinal", handle), [&](Session& session) -> CK_RV {
        if (!session.searching)
            return CKR_OPERATION_NOT_INITIALIZED;
        session.searching = false;
        return CKR_OK;
    });
}

CK_RV fillAttribute(const Object& object, CK_ATTRIBUTE& entry) {
    const auto attribute = object.attributes.find(entry.type);
    if (attribute == object.attributes.end()) {
        entry.ulValueLen = CK_UNAVAILABLE_INFORMATION;
        return CKR_ATTRIBUTE_TYPE_INVALID;
    }
    const Value& value = attribute->second;
    const auto length = static_cast<CK_ULONG>(value.bytes.size());
    if (!entry.pValue) {
        entry.ulValueLen = value.claimedLength.value_or(length);
        return CKR_OK;
    }
    const CK_ULONG room = entry.ulValueLen;
    if (room < length && !value.filledLength) {
        entry.ulValueLen = CK_UNAVAILABLE_INFORMATION;
        return CKR_BUFFER_TOO_SMALL;
    }
    std::copy_n(value.bytes.begin(), std::min(room, length),
                static_cast<unsigned char*>(entry.pValue));
    entry.ulValueLen = value.filledLength.value_or(length);
    return CKR_OK;
}

CK_RV getAttributeValue(CK_SESSION_HANDLE handle, CK_OBJECT_HANDLE objectHandle,
                        CK_ATTRIBUTE* entries, CK_ULONG count) {
    Call call = makeCall("C_GetAttributeValue", handle);
    call.object = objectHandle;
    call.entries = recorded(entries, count, false);
    return answerInSession(std::move(call), [&](Session& session) -> CK_RV {
        const std::vector<Object>& objects = findSlot(session.slot)->objects;
        if (objectHandle == 0 || objectHandle > objects.size() || objects[objectHandle - 1].gone)
            return CKR_OBJECT_HANDLE_INVALID;
        CK_RV result = CKR_OK;
        for (CK_ULONG i = 0; i != count; ++i)
            if (const CK_RV one = fillAttribute(objects[objectHandle - 1], entries[i]);
                one != CKR_OK)
                result = one;
        return result;
    });
}

template <class... Arguments>
CK_RV notSupported(Arguments...) {
    return CKR_FUNCTION_NOT_SUPPORTED;
}

CK_RV getFunctionList(CK_FUNCTION_LIST** list);

CK_FUNCTION_LIST makeFunctionList() {
    CK_FUNCTION_LIST list{};
    list.version = {2, 40};
    list.C_Initialize = initialize;
    list.C_Finalize = finalize;
    list.C_GetInfo = getInfo;
    list.C_GetFunctionList = getFunctionList;
    list.C_GetSlotList = getSlotList;
    list.C_GetSlotInfo = notSupported;
    list.C_GetTokenInfo = getTokenInfo;
    list.C_GetMechanismList = notSupported;
    list.C_GetMechanismInfo = notSupported;
    list.C_InitToken = notSupported;
    list.C_InitPIN = notSupported;
    list.C_SetPIN = notSupported;
    list.C_OpenSession = openSession;
    list.C_CloseSession = closeSession;
    list.C_CloseAllSessions = notSupported;
    list.C_GetSessionInfo = notSupported;
    list.C_GetOperationState = notSupported;
    list.C_SetOperationState = notSupported;
    list.C_Login = login;
    list.C_Logout = notSupported;
    list.C_CreateObject = notSupported;
    list.C_CopyObject = notSupported;
    list.C_DestroyObject = notSupported;
    list.C_GetObjectSize = notSupported;
    list.C_GetAttributeValue = getAttributeValue;
    list.C_SetAttributeValue = notSupported;
    list.C_FindObjectsInit = findObjectsInit;
    list.C_FindObjects = findObjects;
    list.C_FindObjectsFinal = findObjectsFinal;
    list.C_EncryptInit = notSupported;
    list.C_Encrypt = notSupported;
    list.C_EncryptUpdate = notSupported;
    list.C_EncryptFinal = notSupported;
    list.C_DecryptInit = notSupported;
    list.C_Decrypt = notSupported;
    list.C_DecryptUpdate = notSupported;
    list.C_DecryptFinal = notSupported;
    list.C_DigestInit = notSupported;
    list.C_Digest = notSupported;
    list.C_DigestUpdate = notSupported;
    list.C_DigestKey = notSupported;
    list.C_DigestFinal = notSupported;
    list.C_SignInit = notSupported;
    list.C_Sign = notSupported;
    list.C_SignUpdate = notSupported;
    list.C_SignFinal = notSupported;
    list.C_SignRecoverInit = notSupported;
    list.C_SignRecover = notSupported;
    list.C_VerifyInit = notSupported;
    list.C_Verify = notSupported;
    list.C_VerifyUpdate = notSupported;
    list.C_VerifyFinal = notSupported;
    list.C_VerifyRecoverInit = notSupported;
    list.C_VerifyRecover = notSupported;
    list.C_DigestEncryptUpdate = notSupported;
    list.C_DecryptDigestUpdate = notSupported;
    list.C_SignEncryptUpdate = notSupported;
    list.C_DecryptVerifyUpdate = notSupported;
    list.C_GenerateKey = notSupported;
    list.C_GenerateKeyPair = notSupported;
    list.C_WrapKey = notSupported;
    list.C_UnwrapKey = notSupported;
    list.C_DeriveKey = notSupported;
    list.C_SeedRandom = notSupported;
    list.C_GenerateRandom = notSupported;
    list.C_GetFunctionStatus = notSupported;
    list.C_CancelFunction = notSupported;
    list.C_WaitForSlotEvent = notSupported;
    return list;
}

struct Droppable {
    std::string_view name;
    void (*drop)(CK_FUNCTION_LIST&);
};
// By name, not through pointers to members: on Windows the list is packed, and those know nothing
// of it.
constexpr Droppable droppable[] = {
    {"C_Initialize", [](CK_FUNCTION_LIST& list) { list.C_Initialize = nullptr; }},
    {"C_Finalize", [](CK_FUNCTION_LIST& list) { list.C_Finalize = nullptr; }},
    {"C_GetInfo", [](CK_FUNCTION_LIST& list) { list.C_GetInfo = nullptr; }},
    {"C_GetSlotList", [](CK_FUNCTION_LIST& list) { list.C_GetSlotList = nullptr; }},
    {"C_GetTokenInfo", [](CK_FUNCTION_LIST& list) { list.C_GetTokenInfo = nullptr; }},
    {"C_OpenSession", [](CK_FUNCTION_LIST& list) { list.C_OpenSession = nullptr; }},
    {"C_CloseSession", [](CK_FUNCTION_LIST& list) { list.C_CloseSession = nullptr; }},
    {"C_Login", [](CK_FUNCTION_LIST& list) { list.C_Login = nullptr; }},
    {"C_FindObjectsInit", [](CK_FUNCTION_LIST& list) { list.C_FindObjectsInit = nullptr; }},
    {"C_FindObjects", [](CK_FUNCTION_LIST& list) { list.C_FindObjects = nullptr; }},
    {"C_FindObjectsFinal", [](CK_FUNCTION_LIST& list) { list.C_FindObjectsFinal = nullptr; }},
    {"C_GetAttributeValue", [](CK_FUNCTION_LIST& list) { list.C_GetAttributeValue = nullptr; }},
};

void dropFunction(CK_FUNCTION_LIST& list, std::string_view name) {
    for (const Droppable& function : droppable)
        if (function.name == name)
            function.drop(list);
}

CK_RV getFunctionList(CK_FUNCTION_LIST** list) {
    static CK_FUNCTION_LIST functions;
    return answer(makeCall("C_GetFunctionList"), [&]() -> CK_RV {
        functions = makeFunctionList();
        dropFunction(functions, control().missingFunction);
        *list = control().nullFunctionList ? nullptr : &functions;
        return CKR_OK;
    });
}

} // namespace

} // namespace faketoken

FAKETOKEN_EXPORT faketoken::Control* fakeTokenControl() {
    return &faketoken::control();
}

FAKETOKEN_EXPORT CK_RV C_GetFunctionList(CK_FUNCTION_LIST** list) {
    return faketoken::getFunctionList(list);
}
