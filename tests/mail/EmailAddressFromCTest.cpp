#include "include2/EmailAddress"
#include "include2/quillmark.h"

using namespace Quillmark;

extern "C" {
char const* addressIsCreatedFromText(void);
char const* nullIsNoAddress(void);
char const* addressesAreFoundInOrder(void);
char const* containerOwnsItsAddresses(void);
}

TEST(EmailAddressFromC, IsCreatedFromText) {
    EXPECT_STREQ(addressIsCreatedFromText(), nullptr);
}
TEST(EmailAddressFromC, IsNothingWhenNull) {
    EXPECT_STREQ(nullIsNoAddress(), nullptr);
}
TEST(EmailAddressFromC, IsFoundInAscendingOrder) {
    EXPECT_STREQ(addressesAreFoundInOrder(), nullptr);
}
TEST(EmailAddressFromC, IsOwnedByItsContainer) {
    EXPECT_STREQ(containerOwnsItsAddresses(), nullptr);
}

TEST(EmailAddressFromC, SharesAnAddressOfCxx) {
    EmailAddress const address = EmailAddress::rfc5322Parse("N <a@x.example>", false);
    quill_emailaddress* const handle = quill_emailaddress_create(address);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(quill_emailaddress_get_local(handle), address.local().c_str());
    quill_emailaddress_destroy(handle);
    EXPECT_EQ(address.local(), "a");
}

TEST(EmailAddressFromC, TakesANullAddressOfCxx) {
    quill_emailaddress* const handle = quill_emailaddress_create(EmailAddress());
    ASSERT_NE(handle, nullptr);
    EXPECT_STREQ(quill_emailaddress_get_string(handle), "");
    EXPECT_EQ(quill_emailaddress_get_email_address(handle), nullptr);
    EXPECT_EQ(quill_emailaddress_get_local(handle), nullptr);
    EXPECT_EQ(quill_emailaddress_to_username(handle), nullptr);
    EXPECT_EQ(quill_emailaddress_get_domain(handle), nullptr);
    EXPECT_EQ(quill_emailaddress_get_personal(handle), nullptr);
    quill_emailaddress_destroy(handle);
}
