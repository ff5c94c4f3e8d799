// Every test of this program reads its top-level-domain lists from here.

#include <optional>

#include "tests/support/DomainLists.h"

namespace {

class Environment : public testing::Environment {
public:
    void SetUp() override { m_lists.emplace(); }
    void TearDown() override { m_lists.reset(); }

private:
    std::optional<QuillmarkTest::DomainLists> m_lists;
};

testing::Environment* const environment = testing::AddGlobalTestEnvironment(new Environment);

}  // namespace
