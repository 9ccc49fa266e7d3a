// An update, once for every call of the module and every answer that the call may fail with.
#include "cryptokianswers.h"
#include "tally.h"
#include "updatetest.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace torture {
namespace {

class TokenFailure : public UpdateTest {
protected:
    /// The names of the functions that an update calls, in order.
    std::vector<std::string> callsOfAnUpdate() {
        token->forgetCalls();
        windows.begin();
        const UpdateRun run = update();
        EXPECT_EQ(run.outcome, success);
        expectAllIsGivenBack(run);
        return token->sequence();
    }

    static Outcome cryptokiError(CK_RV answer) {
        return {
            "Pkcs11Error_CryptokiError", {{L"CRYPTOKY_ERROR_CODE", std::to_wstring(answer)}}, {}};
    }

    /// Whether an answer is no failure of an update: a session counts as closed whatever the
    /// module answers, and a list of slots that grew is asked for again.
    bool isSwallowed(std::size_t n, CK_RV answer) {
        const faketoken::Call& call = token->calls.at(n - 1);
        return call.function == "C_CloseSession" ||
               (call.function == "C_GetSlotList" && call.hasRoom && answer == CKR_BUFFER_TOO_SMALL);
    }

    void expectFailure(std::size_t n, CK_RV answer) {
        token->forgetCalls();
        token->failAny(n, answer);
        windows.begin();
        const UpdateRun run = update();
        EXPECT_EQ(run.outcome, isSwallowed(n, answer) ? success : cryptokiError(answer));
        EXPECT_EQ(token->calls.at(n - 1).answer, answer);
        expectStateAfter(run);
    }

    /// The call fails, and so do all others after it.
    void expectRemoval(std::size_t n) {
        token->forgetCalls();
        token->failFrom(n, CKR_DEVICE_REMOVED);
        windows.begin();
        const UpdateRun run = update();
        EXPECT_EQ(run.outcome, cryptokiError(CKR_DEVICE_REMOVED));
        expectStateAfter(run);
    }

private:
    void expectStateAfter(const UpdateRun& run) {
        expectAllIsGivenBack(run);
        if (run.stage == Stage::closing)
            expectStoreIsComplete();
        else
            expectStoreIsUntouched();
    }
};

/// The answers of a function that are failures: a module that the process uses already is used.
std::vector<CK_RV> failuresOf(const std::string& function) {
    std::vector<CK_RV> answers = documentedAnswers(function);
    if (function == "C_Initialize")
        std::erase(answers, CK_RV{CKR_CRYPTOKI_ALREADY_INITIALIZED});
    return answers;
}

TEST_F(TokenFailure, OfEachCallWithEachAnswerArrivesAndLeavesNothingOpen) {
    Tally tally("PKCS #11 calls of an update");
    const std::vector<std::string> sequence = callsOfAnUpdate();
    for (std::size_t n = 1; n <= sequence.size() && tally.goesOn(); ++n) {
        const std::string& function = sequence[n - 1];
        const std::string name = "call " + std::to_string(n) + ", " + function;
        const std::vector<CK_RV> answers = failuresOf(function);
        tally.addCall(function, answers.size());
        renewToken();
        for (const CK_RV answer : answers)
            tally.run(name + ", answers " + std::to_string(answer),
                      [&] { expectFailure(n, answer); });
        tally.run(name + " and all after it", [&] { expectRemoval(n); });
        tally.run(name + ", afterwards", [&] { expectStoreCanBeCompleted(); });
    }
    EXPECT_THAT(tally.functions(),
                testing::UnorderedElementsAreArray(faketoken::readingFunctionNames));
}

TEST_F(TokenFailure, IsNoneIfTheProcessUsesTheModuleAlready) {
    token->initialized = true;
    token->forgetCalls();
    windows.begin();
    const UpdateRun run = update();
    EXPECT_EQ(run.outcome, success);
    EXPECT_EQ(token->callsOf("C_Initialize").at(0).answer, CK_RV{CKR_CRYPTOKI_ALREADY_INITIALIZED});
    EXPECT_EQ(token->count("C_Finalize"), 0u);
    expectAllIsGivenBack(run);
    expectStoreIsComplete();
    token->initialized = false;
}

} // namespace
} // namespace torture
