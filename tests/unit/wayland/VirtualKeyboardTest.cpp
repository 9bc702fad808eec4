#include <gtest/gtest.h>
#include <xkbcommon/xkbcommon.h>

#include <memory>
#include <string>
#include <vector>

#include "desktop/ClipboardManager.h"
#include "platform/testing/FakeSyntheticKeys.h"
#include "platform/wayland/VirtualKeyboardKeys.h"
#include "platform/wayland/VirtualKeymap.h"
#include "support/StorageFixture.h"

using namespace vocle;
using namespace vocle::wayland;
using namespace vocle::testing;

namespace {

// Plays the compositor: reads the uploaded keymap with libxkbcommon, as a compositor does, and applies
// keys and modifier announcements to an XKB state, recording what a client would see for each press.
class XkbCompositor final : public VirtualKeyboardSink {
  public:
    ~XkbCompositor() override {
        if (state) xkb_state_unref(state);
        if (keymapObject) xkb_keymap_unref(keymapObject);
        xkb_context_unref(context);
    }
    void keymap(const std::string& text) override {
        ++keymapUploads;
        keymapObject = xkb_keymap_new_from_string(context, text.c_str(), XKB_KEYMAP_FORMAT_TEXT_V1,
                                                  XKB_KEYMAP_COMPILE_NO_FLAGS);
        if (keymapObject) state = xkb_state_new(keymapObject);
    }
    void key(uint32_t evdevCode, bool down) override {
        ASSERT_NE(state, nullptr) << "a key before a usable keymap";
        events.push_back(std::string(down ? "+" : "-") + name(evdevCode));
        if (!down) return;
        // What the focused client resolves: the keysym under the announced modifiers.
        const xkb_keysym_t sym = xkb_state_key_get_one_sym(state, evdevCode + 8);
        if (sym == XKB_KEY_v || sym == XKB_KEY_V) {
            std::string chord;
            if (active(XKB_MOD_NAME_CTRL)) chord += "Ctrl+";
            if (active(XKB_MOD_NAME_SHIFT)) chord += "Shift+";
            char symName[32];
            xkb_keysym_get_name(sym, symName, sizeof symName);
            chords.push_back(chord + symName);
        }
    }
    void modifiers(uint32_t depressed) override {
        events.push_back("mods=" + std::to_string(depressed));
        xkb_state_update_mask(state, depressed, 0, 0, 0, 0, 0);
    }
    bool active(const char* mod) const {
        return xkb_state_mod_name_is_active(state, mod, XKB_STATE_MODS_EFFECTIVE) > 0;
    }
    std::string name(uint32_t evdevCode) const {
        const char* n = xkb_keymap_key_get_name(keymapObject, evdevCode + 8);
        return n ? n : "?";
    }

    xkb_context* context = xkb_context_new(
        static_cast<xkb_context_flags>(XKB_CONTEXT_NO_DEFAULT_INCLUDES | XKB_CONTEXT_NO_ENVIRONMENT_NAMES));
    xkb_keymap* keymapObject = nullptr;
    xkb_state* state = nullptr;
    int keymapUploads = 0;
    std::vector<std::string> events;
    std::vector<std::string> chords;
};

class VirtualKeymapTest : public ::testing::TestWithParam<bool> {};

TEST_P(VirtualKeymapTest, CompilesWithoutSystemFilesAndCarriesControlShiftAndV) {
    XkbCompositor compositor;
    compositor.keymap(GetParam() ? VirtualKeymap::text() : VirtualKeymap::minimalText());
    ASSERT_NE(compositor.keymapObject, nullptr) << "the keymap text does not compile";
    for (uint16_t key : {keycode::kControl, keycode::kShift, keycode::kV}) {
        const auto code = VirtualKeymap::evdevCode(key);
        ASSERT_TRUE(code) << key;
        const xkb_keysym_t* syms = nullptr;
        ASSERT_EQ(xkb_keymap_key_get_syms_by_level(compositor.keymapObject, *code + 8, 0, 0, &syms), 1);
        const xkb_keysym_t expected = key == keycode::kControl ? XKB_KEY_Control_L
                                      : key == keycode::kShift ? XKB_KEY_Shift_L
                                                               : XKB_KEY_v;
        EXPECT_EQ(syms[0], expected) << key;
    }
    // Our masks are the keymap's own modifier bits.
    EXPECT_EQ(VirtualKeymap::modifierMask(keycode::kControl),
              1u << xkb_keymap_mod_get_index(compositor.keymapObject, XKB_MOD_NAME_CTRL));
    EXPECT_EQ(VirtualKeymap::modifierMask(keycode::kShift),
              1u << xkb_keymap_mod_get_index(compositor.keymapObject, XKB_MOD_NAME_SHIFT));
}

INSTANTIATE_TEST_SUITE_P(FullAndMinimal, VirtualKeymapTest, ::testing::Bool());

class VirtualKeyboardPasteTest : public ::testing::Test, protected StorageFixtureBase {
  protected:
    XkbCompositor compositor;
    std::optional<std::string> appId;
    VirtualKeyboardKeys keys{compositor, [this] { return appId; }};
    FakePasteboard pasteboard;
    HistoryService history{folder, clock};
    NotificationCenter center;
    ClipboardManager manager{clock, pasteboard, keys, history, center};
};

TEST_F(VirtualKeyboardPasteTest, ApplicationsGetCtrlVWithTheModifierAnnouncedAroundTheKey) {
    EXPECT_EQ(compositor.keymapUploads, 1);
    appId = "org.gnome.TextEditor";
    manager.copyAndPaste("hello");
    EXPECT_EQ(compositor.chords, std::vector<std::string>{"Ctrl+v"});
    EXPECT_EQ(compositor.events,
              (std::vector<std::string>{"+LCTL", "mods=4", "+AB04", "-AB04", "-LCTL", "mods=0"}));
    EXPECT_FALSE(compositor.active(XKB_MOD_NAME_CTRL)) << "no modifier left down";
}

TEST_F(VirtualKeyboardPasteTest, TerminalsGetCtrlShiftV) {
    appId = "foot";
    manager.copyAndPaste("ls");
    EXPECT_EQ(compositor.chords, std::vector<std::string>{"Ctrl+Shift+V"});
    EXPECT_EQ(compositor.events, (std::vector<std::string>{"+LCTL", "mods=4", "+LFSH", "mods=5", "+AB04",
                                                           "-AB04", "-LFSH", "mods=4", "-LCTL", "mods=0"}));
}

TEST_F(VirtualKeyboardPasteTest, NoFocusedAppIdMeansCtrlVAndNoModifierWait) {
    manager.copyAndPaste("x");
    EXPECT_EQ(compositor.chords, std::vector<std::string>{"Ctrl+v"});
    EXPECT_EQ(keys.heldModifiers(), 0u);
}

TEST_F(VirtualKeyboardPasteTest, ReleaseLetsGoOfOnlyWhatIsStillDown) {
    keys.postKey(keycode::kControl, true);
    keys.postKey(keycode::kShift, true);
    compositor.events.clear();
    keys.releaseHeldModifiers();
    EXPECT_EQ(compositor.events, (std::vector<std::string>{"-LFSH", "mods=4", "-LCTL", "mods=0"}));
    compositor.events.clear();
    keys.releaseHeldModifiers();
    EXPECT_TRUE(compositor.events.empty());
}

}  // namespace
