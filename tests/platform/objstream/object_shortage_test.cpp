// Objects that cannot be copied for want of memory.
#include <gtest/gtest.h>

#include <new>
#include <string>

#include "objstream/object.h"
#include "support/failing_new.h"

namespace objstream {
namespace {

using vidorra::test::FailingNew;

const std::string kText = "a text that is too long for a string without memory of its own";

void expectNoCopy(const object& value) {
    object target = 1;
    {
        const FailingNew failing;
        EXPECT_THROW(object{value}, std::bad_alloc);
        EXPECT_THROW(target = value, std::bad_alloc);
    }
    EXPECT_EQ(target, object(1));
    EXPECT_EQ(object(value), value);
}

TEST(ObjectShortage, ATextIsNotCopied) {
    expectNoCopy(kText);
}

TEST(ObjectShortage, AMapIsNotCopied) {
    object value;
    value["key"] = kText;
    expectNoCopy(value);
}

TEST(ObjectShortage, AnArrayIsNotCopied) {
    object value;
    value.append(kText);
    expectNoCopy(value);
}

TEST(ObjectShortage, ANumberNeedsNone) {
    const object value = 7;
    const FailingNew failing;
    EXPECT_NO_THROW(object{value});
}

}  // namespace
}  // namespace objstream
