#include "platform/x11/AtspiAccessibility.h"

#include <atspi/atspi.h>
#include <dbus/dbus.h>

#include "foundation/Log.h"
#include "platform/x11/AtspiBus.h"

namespace vocle {

namespace {

class AtspiElement final : public AccessibilityElement {
  public:
    // Takes over a reference.
    explicit AtspiElement(AtspiAccessible* object, bool isWindow = false)
        : object_(object), isWindow_(isWindow) {}
    // The address a browser window shows, as its own text field.
    explicit AtspiElement(std::string address) : address_(std::move(address)) {}
    ~AtspiElement() override {
        if (!object_) return;
        std::lock_guard lock(atspi::lock());
        g_object_unref(object_);
    }

    AtspiAccessible* object() const { return object_; }
    bool isWindow() const { return isWindow_; }
    const std::optional<std::string>& address() const { return address_; }

  private:
    AtspiAccessible* object_ = nullptr;
    bool isWindow_ = false;
    std::optional<std::string> address_;
};

const AtspiElement* asAtspi(const AXElement& element) {
    return dynamic_cast<const AtspiElement*>(element.get());
}

struct GErrorGuard {
    GError* error = nullptr;
    ~GErrorGuard() {
        if (error) g_error_free(error);
    }
    bool failed() const { return error != nullptr; }
};

std::optional<std::string> takeString(gchar* text) {
    if (!text) return std::nullopt;
    std::string value(text);
    g_free(text);
    return value;
}

bool hasState(AtspiAccessible* object, AtspiStateType state) {
    AtspiStateSet* states = atspi_accessible_get_state_set(object);
    if (!states) return false;
    const bool has = atspi_state_set_contains(states, state);
    g_object_unref(states);
    return has;
}

// The web document a window shows: Chromium gives the frame a hyperlink to it; Firefox answers
// "DocURL" on its document-web element, found through the collection interface in one call. Empty
// when the window shows no document.
std::string windowAddress(AtspiAccessible* window) {
    if (AtspiHyperlink* link = atspi_accessible_get_hyperlink(window)) {
        GErrorGuard err;
        const std::string uri = takeString(atspi_hyperlink_get_uri(link, 0, &err.error)).value_or("");
        g_object_unref(link);
        if (!uri.empty()) return uri;
    }
    AtspiCollection* collection = atspi_accessible_get_collection_iface(window);
    if (!collection) return {};
    std::string address;
    GArray* roles = g_array_new(FALSE, FALSE, sizeof(AtspiRole));
    AtspiRole documentRole = ATSPI_ROLE_DOCUMENT_WEB;
    g_array_append_val(roles, documentRole);
    AtspiStateSet* showing = atspi_state_set_new(nullptr);
    atspi_state_set_add(showing, ATSPI_STATE_SHOWING);
    AtspiMatchRule* rule = atspi_match_rule_new(showing, ATSPI_Collection_MATCH_ALL, nullptr,
                                                ATSPI_Collection_MATCH_NONE, roles, ATSPI_Collection_MATCH_ANY,
                                                nullptr, ATSPI_Collection_MATCH_NONE, FALSE);
    GErrorGuard err;
    GArray* matches =
        atspi_collection_get_matches(collection, rule, ATSPI_Collection_SORT_ORDER_CANONICAL, 1, TRUE, &err.error);
    if (matches) {
        for (guint i = 0; i < matches->len; ++i) {
            AtspiAccessible* document = g_array_index(matches, AtspiAccessible*, i);
            if (address.empty()) {
                if (AtspiDocument* doc = atspi_accessible_get_document_iface(document)) {
                    address = takeString(atspi_document_get_document_attribute_value(
                                             doc, const_cast<gchar*>("DocURL"), nullptr))
                                  .value_or("");
                    g_object_unref(doc);
                }
            }
            g_object_unref(document);
        }
        g_array_free(matches, TRUE);
    }
    g_object_unref(rule);
    g_object_unref(showing);
    g_array_free(roles, TRUE);
    g_object_unref(collection);
    return address;
}

constexpr const char* kA11yBusName = "org.a11y.Bus";
constexpr const char* kA11yBusPath = "/org/a11y/bus";
constexpr const char* kA11yStatusInterface = "org.a11y.Status";
constexpr int kStatusTimeoutMs = 1000;

// org.a11y.Status.IsEnabled over a private session-bus connection; none when it cannot be read.
std::optional<bool> readA11yEnabled(DBusConnection* bus) {
    DBusMessage* call = dbus_message_new_method_call(kA11yBusName, kA11yBusPath, DBUS_INTERFACE_PROPERTIES, "Get");
    const char* interface = kA11yStatusInterface;
    const char* property = "IsEnabled";
    dbus_message_append_args(call, DBUS_TYPE_STRING, &interface, DBUS_TYPE_STRING, &property, DBUS_TYPE_INVALID);
    DBusError err;
    dbus_error_init(&err);
    DBusMessage* reply = dbus_connection_send_with_reply_and_block(bus, call, kStatusTimeoutMs, &err);
    dbus_message_unref(call);
    if (!reply) {
        log("AtspiAccessibility: Cannot read the accessibility status: ", err.message ? err.message : "no reply");
        dbus_error_free(&err);
        return std::nullopt;
    }
    std::optional<bool> enabled;
    DBusMessageIter iter, variant;
    if (dbus_message_iter_init(reply, &iter) && dbus_message_iter_get_arg_type(&iter) == DBUS_TYPE_VARIANT) {
        dbus_message_iter_recurse(&iter, &variant);
        if (dbus_message_iter_get_arg_type(&variant) == DBUS_TYPE_BOOLEAN) {
            dbus_bool_t value = FALSE;
            dbus_message_iter_get_basic(&variant, &value);
            enabled = value != FALSE;
        }
    }
    dbus_message_unref(reply);
    return enabled;
}

bool enableA11y(DBusConnection* bus) {
    DBusMessage* call = dbus_message_new_method_call(kA11yBusName, kA11yBusPath, DBUS_INTERFACE_PROPERTIES, "Set");
    const char* interface = kA11yStatusInterface;
    const char* property = "IsEnabled";
    DBusMessageIter iter, variant;
    dbus_message_iter_init_append(call, &iter);
    dbus_message_iter_append_basic(&iter, DBUS_TYPE_STRING, &interface);
    dbus_message_iter_append_basic(&iter, DBUS_TYPE_STRING, &property);
    dbus_message_iter_open_container(&iter, DBUS_TYPE_VARIANT, DBUS_TYPE_BOOLEAN_AS_STRING, &variant);
    dbus_bool_t on = TRUE;
    dbus_message_iter_append_basic(&variant, DBUS_TYPE_BOOLEAN, &on);
    dbus_message_iter_close_container(&iter, &variant);
    DBusError err;
    dbus_error_init(&err);
    DBusMessage* reply = dbus_connection_send_with_reply_and_block(bus, call, kStatusTimeoutMs, &err);
    dbus_message_unref(call);
    if (!reply) {
        log("AtspiAccessibility: Cannot enable the accessibility bus: ", err.message ? err.message : "no reply");
        dbus_error_free(&err);
        return false;
    }
    dbus_message_unref(reply);
    return true;
}

}  // namespace

AtspiAccessibility::AtspiAccessibility() = default;
AtspiAccessibility::~AtspiAccessibility() = default;

std::string AtspiAccessibility::axRoleName(int atspiRole, bool singleLine) {
    switch (static_cast<AtspiRole>(atspiRole)) {
        case ATSPI_ROLE_ENTRY:
        case ATSPI_ROLE_EDITBAR:
            return kAXTextFieldRole;
        case ATSPI_ROLE_TEXT:
            return singleLine ? kAXTextFieldRole : "AXTextArea";
        // Never read as an address: its text is what the user typed as a secret.
        case ATSPI_ROLE_PASSWORD_TEXT:
            return "AXSecureTextField";
        case ATSPI_ROLE_APPLICATION:
            return "AXApplication";
        case ATSPI_ROLE_FRAME:
        case ATSPI_ROLE_WINDOW:
        case ATSPI_ROLE_DIALOG:
        case ATSPI_ROLE_FILE_CHOOSER:
        case ATSPI_ROLE_ALERT:
            return "AXWindow";
        case ATSPI_ROLE_PUSH_BUTTON:
            return "AXButton";
        case ATSPI_ROLE_TOGGLE_BUTTON:
        case ATSPI_ROLE_CHECK_BOX:
        case ATSPI_ROLE_CHECK_MENU_ITEM:
            return "AXCheckBox";
        case ATSPI_ROLE_RADIO_BUTTON:
        case ATSPI_ROLE_RADIO_MENU_ITEM:
        case ATSPI_ROLE_PAGE_TAB:
            return "AXRadioButton";
        case ATSPI_ROLE_PAGE_TAB_LIST:
            return "AXTabGroup";
        case ATSPI_ROLE_COMBO_BOX:
            return "AXComboBox";
        case ATSPI_ROLE_TOOL_BAR:
            return "AXToolbar";
        case ATSPI_ROLE_MENU_BAR:
            return "AXMenuBar";
        case ATSPI_ROLE_MENU:
        case ATSPI_ROLE_POPUP_MENU:
            return "AXMenu";
        case ATSPI_ROLE_MENU_ITEM:
            return "AXMenuItem";
        case ATSPI_ROLE_LINK:
            return "AXLink";
        case ATSPI_ROLE_DOCUMENT_WEB:
        case ATSPI_ROLE_DOCUMENT_FRAME:
            return "AXWebArea";
        case ATSPI_ROLE_HEADING:
            return "AXHeading";
        case ATSPI_ROLE_LABEL:
        case ATSPI_ROLE_STATIC:
        case ATSPI_ROLE_CAPTION:
            return "AXStaticText";
        case ATSPI_ROLE_IMAGE:
        case ATSPI_ROLE_ICON:
            return "AXImage";
        case ATSPI_ROLE_LIST:
        case ATSPI_ROLE_LIST_BOX:
            return "AXList";
        case ATSPI_ROLE_TABLE:
        case ATSPI_ROLE_TREE_TABLE:
            return "AXTable";
        case ATSPI_ROLE_TREE:
            return "AXOutline";
        case ATSPI_ROLE_TABLE_ROW:
        case ATSPI_ROLE_TREE_ITEM:
            return "AXRow";
        case ATSPI_ROLE_TABLE_CELL:
            return "AXCell";
        case ATSPI_ROLE_SCROLL_PANE:
            return "AXScrollArea";
        case ATSPI_ROLE_SCROLL_BAR:
            return "AXScrollBar";
        case ATSPI_ROLE_SLIDER:
            return "AXSlider";
        case ATSPI_ROLE_SPIN_BUTTON:
            return "AXIncrementor";
        case ATSPI_ROLE_PROGRESS_BAR:
            return "AXProgressIndicator";
        case ATSPI_ROLE_SPLIT_PANE:
            return "AXSplitGroup";
        case ATSPI_ROLE_PANEL:
        case ATSPI_ROLE_FILLER:
        case ATSPI_ROLE_SECTION:
        case ATSPI_ROLE_GROUPING:
        case ATSPI_ROLE_PARAGRAPH:
        case ATSPI_ROLE_FORM:
        case ATSPI_ROLE_STATUS_BAR:
        case ATSPI_ROLE_INTERNAL_FRAME:
        case ATSPI_ROLE_LANDMARK:
        case ATSPI_ROLE_LIST_ITEM:
        case ATSPI_ROLE_ARTICLE:
            return "AXGroup";
        default:
            return "AXUnknown";
    }
}

bool AtspiAccessibility::ensureConnected() { return atspi::connect(); }

bool AtspiAccessibility::isProcessTrusted(bool prompt) {
    DBusError err;
    dbus_error_init(&err);
    DBusConnection* bus = dbus_bus_get_private(DBUS_BUS_SESSION, &err);
    if (!bus) {
        log("AtspiAccessibility: No session bus: ", err.message ? err.message : "");
        dbus_error_free(&err);
        return false;
    }
    dbus_connection_set_exit_on_disconnect(bus, FALSE);
    std::optional<bool> enabled = readA11yEnabled(bus);
    if (enabled == false && prompt && enableA11y(bus)) {
        log("AtspiAccessibility: Turned the desktop's accessibility bus on");
        enabled = readA11yEnabled(bus);
    }
    dbus_connection_close(bus);
    dbus_connection_unref(bus);
    return enabled.value_or(false);
}

AXElement AtspiAccessibility::applicationElement(int processIdentifier) {
    std::lock_guard lock(atspi::lock());
    if (!ensureConnected()) return nullptr;
    atspi::drainEvents();
    AtspiAccessible* desktop = atspi_get_desktop(0);
    if (!desktop) return nullptr;
    AXElement found;
    GErrorGuard countErr;
    const int count = atspi_accessible_get_child_count(desktop, &countErr.error);
    for (int i = 0; i < count && !found; ++i) {
        GErrorGuard err;
        AtspiAccessible* app = atspi_accessible_get_child_at_index(desktop, i, &err.error);
        if (!app) continue;
        GErrorGuard pidErr;
        if (static_cast<int>(atspi_accessible_get_process_id(app, &pidErr.error)) == processIdentifier &&
            !pidErr.failed()) {
            found = std::make_shared<AtspiElement>(app);
        } else {
            g_object_unref(app);
        }
    }
    g_object_unref(desktop);
    return found;
}

AXRead<AXElement> AtspiAccessibility::focusedWindow(const AXElement& application) {
    const AtspiElement* app = asAtspi(application);
    if (!app || !app->object()) return {kAXFailure, std::nullopt};
    std::lock_guard lock(atspi::lock());
    GErrorGuard countErr;
    const int count = atspi_accessible_get_child_count(app->object(), &countErr.error);
    if (countErr.failed()) return {kAXFailure, std::nullopt};
    for (int i = 0; i < count; ++i) {
        GErrorGuard err;
        AtspiAccessible* window = atspi_accessible_get_child_at_index(app->object(), i, &err.error);
        if (!window) continue;
        if (hasState(window, ATSPI_STATE_ACTIVE)) {
            return {kAXSuccess, AXElement(std::make_shared<AtspiElement>(window, true))};
        }
        g_object_unref(window);
    }
    return {kAXNoValue, std::nullopt};
}

AXRead<std::string> AtspiAccessibility::role(const AXElement& element) {
    const AtspiElement* e = asAtspi(element);
    if (!e) return {kAXFailure, std::nullopt};
    if (e->address()) return {kAXSuccess, kAXTextFieldRole};
    std::lock_guard lock(atspi::lock());
    GErrorGuard err;
    const AtspiRole role = atspi_accessible_get_role(e->object(), &err.error);
    if (err.failed()) return {kAXFailure, std::nullopt};
    const bool textual = role == ATSPI_ROLE_TEXT;
    return {kAXSuccess, axRoleName(role, textual && hasState(e->object(), ATSPI_STATE_SINGLE_LINE))};
}

AXRead<std::string> AtspiAccessibility::stringValue(const AXElement& element) {
    const AtspiElement* e = asAtspi(element);
    if (!e) return {kAXFailure, std::nullopt};
    if (e->address()) return {kAXSuccess, e->address()};
    std::lock_guard lock(atspi::lock());
    AtspiText* text = atspi_accessible_get_text_iface(e->object());
    if (!text) return {kAXSuccess, std::nullopt};
    GErrorGuard countErr;
    const int length = atspi_text_get_character_count(text, &countErr.error);
    AXRead<std::string> result{kAXSuccess, std::nullopt};
    if (countErr.failed()) {
        result.code = kAXFailure;
    } else {
        GErrorGuard err;
        result.value = takeString(atspi_text_get_text(text, 0, length, &err.error));
        if (err.failed()) result = {kAXFailure, std::nullopt};
    }
    g_object_unref(text);
    return result;
}

AXRead<std::vector<AXElement>> AtspiAccessibility::children(const AXElement& element) {
    const AtspiElement* e = asAtspi(element);
    if (!e) return {kAXFailure, std::nullopt};
    if (e->address()) return {kAXSuccess, std::vector<AXElement>{}};
    std::lock_guard lock(atspi::lock());
    std::vector<AXElement> result;
    if (e->isWindow()) {
        std::string address = windowAddress(e->object());
        if (!address.empty()) result.push_back(std::make_shared<AtspiElement>(std::move(address)));
    }
    GErrorGuard countErr;
    const int count = atspi_accessible_get_child_count(e->object(), &countErr.error);
    if (countErr.failed()) return {kAXFailure, std::nullopt};
    for (int i = 0; i < count && i < kMaxChildren; ++i) {
        GErrorGuard err;
        if (AtspiAccessible* child = atspi_accessible_get_child_at_index(e->object(), i, &err.error)) {
            result.push_back(std::make_shared<AtspiElement>(child));
        }
    }
    return {kAXSuccess, std::move(result)};
}

}  // namespace vocle
