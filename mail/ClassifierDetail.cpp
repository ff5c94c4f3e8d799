#include "include2/ClassifierDetail"

#include "foundation/Fail.h"

namespace Quillmark {

namespace {

/// What a detail refers to; without one the failure is titled with the call.
ClassifierDetailImpl const& detailOf(ClassifierDetail const& detail, char const* call) {
    ClassifierDetailImpl const* const impl = detail.isNull() ? nullptr : detail.operator->();
    if (!impl) fail(call, NullHandle, Site{nullptr, 0});
    return *impl;
}

}  // namespace

ClassifierDetailImpl::~ClassifierDetailImpl() = default;

bool ClassifierDetailImpl::isVirus() const {
    return false;
}

std::string ClassifierDetailImpl::toString(unsigned char /*selector*/) const {
    return {};
}

ClassifierDetail::ClassifierDetail() noexcept = default;

ClassifierDetail::ClassifierDetail(ClassifierDetailImpl* impl, bool addReference) : Ref(impl, addReference) {}

bool ClassifierDetail::isVirus() const {
    return detailOf(*this, "isVirus").isVirus();
}

std::string ClassifierDetail::toString(unsigned char selector) const {
    return detailOf(*this, "toString").toString(selector);
}

}  // namespace Quillmark
