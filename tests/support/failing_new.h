#pragma once

namespace vidorra::test {

/// Makes every `new` of this thread throw std::bad_alloc during its lifetime. For programs with the source
/// failing_new.cpp, which also replaces the operator for the library.
class FailingNew {
public:
    FailingNew();
    FailingNew(const FailingNew&) = delete;
    FailingNew& operator=(const FailingNew&) = delete;
    ~FailingNew();
};

}  // namespace vidorra::test
