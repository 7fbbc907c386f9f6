#pragma once

namespace vidorra::test {

/// Makes every `new` of this thread throw std::bad_alloc while it lives. For programs that failing_new.cpp is
/// a source of, which replaces the operator for the library too.
class FailingNew {
public:
    FailingNew();
    FailingNew(const FailingNew&) = delete;
    FailingNew& operator=(const FailingNew&) = delete;
    ~FailingNew();
};

}  // namespace vidorra::test
