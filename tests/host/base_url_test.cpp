#include "linux/host/base_url.h"

#include "tests/host/host_fixture.h"

namespace vorlinden::host {
namespace {

class BaseURLSettingTest : public tests::HostTest {};

TEST_F(BaseURLSettingTest, WhatIsAcceptedIsWhatTheLibraryUses) {
    for (const std::string text : {"https://sync.example.com", "HTTP://127.0.0.1:8080/under/a/path/",
                                   "  http://[::1]:1 ", "https://sync.example.com:65535"}) {
        EXPECT_EQ(objectionToBaseURL(text), std::nullopt) << text;
        setBaseURL(machine.system(), text);
        const auto setting = baseURLSetting(machine.system());
        EXPECT_FALSE(setting.isDefault) << text;
        EXPECT_EQ(setting.inUse, setting.override);
    }
    setBaseURL(machine.system(), std::nullopt);
    EXPECT_TRUE(baseURLSetting(machine.system()).isDefault);
}

TEST_F(BaseURLSettingTest, WhatWouldBePassedOverIsRefusedWithAReason) {
    for (const std::string text : {"", "  \n", "sync.example.com", "localhost:8080", "htp://sync.example.com",
                                   "ftp://sync.example.com", "https://", "https:///path", "http://a b",
                                   "https://host:99999", "https://host:0", "https://me:pw@host",
                                   "https://me@host/path", "https://host/?a=b", "https://host/#x"}) {
        const auto objection = objectionToBaseURL(text);
        ASSERT_TRUE(objection) << text;
        EXPECT_FALSE(objection->empty());
    }
}

TEST_F(BaseURLSettingTest, OnlyPlainHTTPToAnotherMachineIsReadableOnTheWay) {
    for (const std::string text :
         {"http://sync.example.com", "HTTP://10.0.0.1", "http://localhost.example.com"})
        EXPECT_TRUE(isReadableOnTheWay(text)) << text;
    for (const std::string text :
         {"https://sync.example.com", "http://localhost:1", "http://127.0.0.1", "http://[::1]:80/"})
        EXPECT_FALSE(isReadableOnTheWay(text)) << text;
}

TEST_F(BaseURLSettingTest, AStoredTextThatIsUnusableShowsBesideTheDefault) {
    machine.defaults->set(AppGroup::baseURLOverrideKey, "htp://typo");
    const auto setting = baseURLSetting(machine.system());
    EXPECT_TRUE(setting.isDefault);
    EXPECT_EQ(setting.override, "htp://typo");
    EXPECT_EQ(setting.inUse, AppGroup::defaultBaseURL().absoluteString());
}

}  // namespace
}  // namespace vorlinden::host
