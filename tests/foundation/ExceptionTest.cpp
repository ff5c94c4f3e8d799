#include "include2/Exception"

#include "tests/support/Support.h"

using namespace Quillmark;

TEST(Exception, PrintsTitleCodePlaceAndDetail) {
    BufferException e(2, "BufferImpl", 121);
    e.stringParameter("Can't change the size of a fixed size buffer.");
    EXPECT_EQ(e.asString(),
              "BufferException( 2 ) , BufferImpl:121,  \"Can't change the size of a fixed size buffer.\"");
}
