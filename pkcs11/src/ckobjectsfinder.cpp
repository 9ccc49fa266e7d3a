// Searching a token's objects and reading their attributes.
#include "ckobjectsfinder.h"

#include "cryptoki.h"
#include "module.h"

#include <utility>

namespace pkcs11 {

namespace {

constexpr wchar_t sourceFile[] = L"pkcs11\\src\\ckobjectsfinder.cpp";

const CK_FUNCTION_LIST& functionsOf(const CkSession& session) {
    return session.ckLibrary().module().functions();
}

} // namespace

void CkObject::get(CkAttributes& attributes) const {
    std::vector<CK_ATTRIBUTE> entries = cryptokiTemplate(attributes);
    check(answerOf(functionsOf(*session_).C_GetAttributeValue, session_->handle(), handle_,
                   entries.data(), static_cast<CK_ULONG>(entries.size())),
          sourceFile);
    for (std::size_t i = 0; i != entries.size(); ++i)
        attributes.setReturnedLength(i, entries[i].ulValueLen);
}

CkObjectsFinderIterator::CkObjectsFinderIterator(const CkObjectsFinder& finder) : finder_(&finder) {
    fetch();
}

CkObject CkObjectsFinderIterator::operator*() const noexcept {
    return CkObject(finder_->session_, handles_[position_]);
}

CkObjectsFinderIterator& CkObjectsFinderIterator::operator++() {
    if (++position_ == fetched_)
        fetch();
    return *this;
}

void CkObjectsFinderIterator::fetch() {
    const CkSession& session = finder_->session_;
    CK_ULONG count = 0;
    check(answerOf(functionsOf(session).C_FindObjects, session.handle(), handles_.data(), batchSize,
                   &count),
          sourceFile);
    if (count > batchSize || count > maxObjects - total_)
        throw cryptokiError(sourceFile, ckr::generalError);
    fetched_ = count;
    position_ = 0;
    total_ += count;
}

CkObjectsFinder::~CkObjectsFinder() {
    // No event is made of the answer: making one can throw, and nobody would see it.
    if (active_ && session_.ckLibrary().module().isUsable())
        answerOf(functionsOf(session_).C_FindObjectsFinal, session_.handle());
}

void CkObjectsFinder::init(const CkAttributes& searchTemplate) {
    std::vector<CK_ATTRIBUTE> entries = cryptokiTemplate(searchTemplate);
    check(answerOf(functionsOf(session_).C_FindObjectsInit, session_.handle(), entries.data(),
                   static_cast<CK_ULONG>(entries.size())),
          sourceFile);
    active_ = true;
}

void CkObjectsFinder::final() {
    if (std::exchange(active_, false))
        check(answerOf(functionsOf(session_).C_FindObjectsFinal, session_.handle()), sourceFile);
}

} // namespace pkcs11
