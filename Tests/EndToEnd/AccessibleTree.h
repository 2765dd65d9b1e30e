#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <QDBusMessage>
#include <QList>
#include <QVariant>

/// What the programs on a session bus tell assistive technology about their windows.
///
/// The tests read windows through this rather than from pixels: a blind user gets the same, and it says
/// where things are on the screen. It lists only what is showing at that moment. Each call asks the
/// programs anew; a window that goes away in the middle is left out.
class AccessibleTree {
public:
    struct Item {
        std::string name;
        std::string role;     // "push button", "list item" and so on
        std::string program;  // together with `path` its name on the bus
        std::string path;
    };

    /// In pixels of the screen.
    struct Place {
        int x = 0;
        int y = 0;
        int width = 0;
        int height = 0;
    };

    explicit AccessibleTree(std::string sessionBus);
    ~AccessibleTree();
    AccessibleTree(const AccessibleTree&) = delete;
    AccessibleTree& operator=(const AccessibleTree&) = delete;

    /// The windows on the screen.
    std::vector<Item> windows();
    /// The items in the windows of that title (in all windows, if it is empty) without the menu bar, parents
    /// before children.
    std::vector<Item> items(const std::string& window);

    std::optional<Place> place(const Item& item);
    /// The text in a field. Empty if the item is no field.
    std::string text(const Item& item);
    bool isFocused(const Item& item);
    /// Of a check box or a radio button.
    bool isChecked(const Item& item);
    /// Whether the item can be used. A button that is greyed out is listed too.
    bool isEnabled(const Item& item);

private:
    bool connect();
    QDBusMessage call(const Item& item, const char* interface, const char* method,
                      const QList<QVariant>& arguments = {});
    std::string property(const Item& item, const char* interface, const char* name);
    std::vector<Item> children(const Item& item);
    std::uint64_t states(const Item& item);
    /// Adds name and role.
    void describe(Item& item);
    void addShown(const Item& parent, std::vector<Item>& found);

    const std::string sessionBus;
    std::string connection;  // Qt's name of the connection to the accessibility bus; empty until there is one
};
