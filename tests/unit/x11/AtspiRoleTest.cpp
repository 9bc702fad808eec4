#include <atspi/atspi.h>
#include <gtest/gtest.h>

#include "platform/x11/AtspiAccessibility.h"

namespace vocle {
namespace {

std::string ax(AtspiRole role, bool singleLine = false) { return AtspiAccessibility::axRoleName(role, singleLine); }

TEST(AtspiRoleTest, TextInputsAreTextFieldsExceptSecretsAndAreas) {
    // The roles an address bar has in Firefox and Chromium.
    EXPECT_EQ(ax(ATSPI_ROLE_ENTRY), kAXTextFieldRole);
    EXPECT_EQ(ax(ATSPI_ROLE_ENTRY, true), kAXTextFieldRole);
    EXPECT_EQ(ax(ATSPI_ROLE_EDITBAR), kAXTextFieldRole);
    EXPECT_EQ(ax(ATSPI_ROLE_TEXT, true), kAXTextFieldRole);
    EXPECT_EQ(ax(ATSPI_ROLE_TEXT, false), "AXTextArea");
    EXPECT_NE(ax(ATSPI_ROLE_PASSWORD_TEXT, true), kAXTextFieldRole);
}

TEST(AtspiRoleTest, ContainersAndControlsHaveTheirAccessibilityNames) {
    EXPECT_EQ(ax(ATSPI_ROLE_FRAME), "AXWindow");
    EXPECT_EQ(ax(ATSPI_ROLE_DIALOG), "AXWindow");
    EXPECT_EQ(ax(ATSPI_ROLE_APPLICATION), "AXApplication");
    EXPECT_EQ(ax(ATSPI_ROLE_PANEL), "AXGroup");
    EXPECT_EQ(ax(ATSPI_ROLE_TOOL_BAR), "AXToolbar");
    EXPECT_EQ(ax(ATSPI_ROLE_PUSH_BUTTON), "AXButton");
    EXPECT_EQ(ax(ATSPI_ROLE_PAGE_TAB_LIST), "AXTabGroup");
    EXPECT_EQ(ax(ATSPI_ROLE_DOCUMENT_WEB), "AXWebArea");
    EXPECT_EQ(ax(ATSPI_ROLE_LINK), "AXLink");
    EXPECT_EQ(ax(ATSPI_ROLE_INVALID), "AXUnknown");
    EXPECT_EQ(ax(ATSPI_ROLE_REDUNDANT_OBJECT), "AXUnknown");
}

}  // namespace
}  // namespace vocle
