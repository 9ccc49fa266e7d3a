// Answers of Cryptoki functions (PKCS #11 2.40, CK_RV), as far as the program tells them apart.
#include "cryptokianswers.h"

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <sstream>

namespace updater {

namespace {

struct AnswerName {
    unsigned long answer;
    const wchar_t* name;
};

constexpr AnswerName answerNames[] = {
    {0x02, L"CKR_HOST_MEMORY"},
    {0x03, L"CKR_SLOT_ID_INVALID"},
    {answer::generalError, L"CKR_GENERAL_ERROR"},
    {0x06, L"CKR_FUNCTION_FAILED"},
    {0x07, L"CKR_ARGUMENTS_BAD"},
    {0x0A, L"CKR_CANT_LOCK"},
    {0x11, L"CKR_ATTRIBUTE_SENSITIVE"},
    {0x12, L"CKR_ATTRIBUTE_TYPE_INVALID"},
    {0x13, L"CKR_ATTRIBUTE_VALUE_INVALID"},
    {0x30, L"CKR_DEVICE_ERROR"},
    {0x31, L"CKR_DEVICE_MEMORY"},
    {answer::deviceRemoved, L"CKR_DEVICE_REMOVED"},
    {0x50, L"CKR_FUNCTION_CANCELED"},
    {0x54, L"CKR_FUNCTION_NOT_SUPPORTED"},
    {0x82, L"CKR_OBJECT_HANDLE_INVALID"},
    {0x90, L"CKR_OPERATION_ACTIVE"},
    {0x91, L"CKR_OPERATION_NOT_INITIALIZED"},
    {answer::pinIncorrect, L"CKR_PIN_INCORRECT"},
    {answer::pinInvalid, L"CKR_PIN_INVALID"},
    {answer::pinLengthRange, L"CKR_PIN_LEN_RANGE"},
    {answer::pinExpired, L"CKR_PIN_EXPIRED"},
    {answer::pinLocked, L"CKR_PIN_LOCKED"},
    {answer::sessionClosed, L"CKR_SESSION_CLOSED"},
    {0xB1, L"CKR_SESSION_COUNT"},
    {answer::sessionHandleInvalid, L"CKR_SESSION_HANDLE_INVALID"},
    {0xD1, L"CKR_TEMPLATE_INCONSISTENT"},
    {answer::tokenNotPresent, L"CKR_TOKEN_NOT_PRESENT"},
    {answer::tokenNotRecognized, L"CKR_TOKEN_NOT_RECOGNIZED"},
    {0xE2, L"CKR_TOKEN_WRITE_PROTECTED"},
    {0x100, L"CKR_USER_ALREADY_LOGGED_IN"},
    {answer::userNotLoggedIn, L"CKR_USER_NOT_LOGGED_IN"},
    {answer::userPinNotInitialized, L"CKR_USER_PIN_NOT_INITIALIZED"},
    {0x104, L"CKR_USER_ANOTHER_ALREADY_LOGGED_IN"},
    {0x105, L"CKR_USER_TOO_MANY_TYPES"},
    {0x190, L"CKR_CRYPTOKI_NOT_INITIALIZED"},
    {0x191, L"CKR_CRYPTOKI_ALREADY_INITIALIZED"},
};

} // namespace

unsigned long answerOf(const korv::GenericEvent& event) {
    const auto* const code = event.param(L"CRYPTOKY_ERROR_CODE");
    return code ? std::wcstoul(code->c_str(), nullptr, 10) : answer::generalError;
}

std::wstring nameOfAnswer(unsigned long answer) {
    const auto* const found =
        std::find_if(std::begin(answerNames), std::end(answerNames),
                     [answer](const AnswerName& entry) { return entry.answer == answer; });
    if (found != std::end(answerNames))
        return found->name;
    std::wostringstream text;
    text << L"answer 0x" << std::hex << std::uppercase << answer;
    return text.str();
}

} // namespace updater
