#include "sim/windows/registry_commands.h"

#include <cstdlib>
#include <cstring>

#include "sim/machine/text.h"
#include "sim/script/commands.h"
#include "sim/script/expectations.h"
#include "sim/script/nearest.h"
#include "sim/script/show.h"
#include "sim/windows/registry_tree.h"

namespace sim {

static std::vector<BYTE> hex_bytes(Tokens& tokens, const std::string& text) {
    std::vector<BYTE> bytes;
    if (text.size() % 2 != 0 || text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        tokens.fail("an even number of hexadecimal digits expected");
        return bytes;
    }
    for (size_t i = 0; i < text.size(); i += 2)
        bytes.push_back(static_cast<BYTE>(std::stoul(text.substr(i, 2), nullptr, 16)));
    return bytes;
}

RegistryValue read_registry_data(Tokens& tokens) {
    RegistryValue data;
    static const DWORD types[] = {REG_DWORD, REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ, REG_BINARY, REG_NONE};
    const size_t kind = tokens.choice({"dword", "sz", "expand", "multi", "binary", "raw"});
    data.type = types[kind];
    switch (kind) {
    case 0: {
        const auto value = static_cast<DWORD>(tokens.number());
        data.bytes.resize(sizeof(value));
        std::memcpy(data.bytes.data(), &value, sizeof(value));
        break;
    }
    case 1:
    case 2:
        data.bytes = wide_bytes(tokens.text());
        break;
    case 3:
        do {
            const std::vector<BYTE> part = wide_bytes(tokens.text());
            data.bytes.insert(data.bytes.end(), part.begin(), part.end());
        } while (!tokens.done());
        data.bytes.insert(data.bytes.end(), {0, 0});
        break;
    case 4:
        data.bytes = hex_bytes(tokens, tokens.done() ? "" : tokens.word());
        break;
    default:
        data.type = static_cast<DWORD>(tokens.number());
        data.bytes = hex_bytes(tokens, tokens.done() ? "" : tokens.word());
    }
    return data;
}

static std::string registry_path(Tokens& tokens) {
    std::string path = tokens.word();
    const std::string root = lower(path.substr(0, path.find('\\')));
    if (root != "hklm" && root != "hkcr" && root != "hkcu" && root != "hku" && root != "svc")
        tokens.fail("a registry path expected: " + path + suggestion(root, {"HKLM", "HKCR", "HKU", "SVC"}));
    return path;
}

static Action compile_set(Tokens& tokens) {
    const std::string path = registry_path(tokens);
    if (tokens.done())
        return [path] { registry_create(path); };
    const std::string name = tokens.word();
    const RegistryValue data = read_registry_data(tokens);
    return [path, name, data] { registry_set(path, name, data.type, data.bytes); };
}

static Action compile_delete(Tokens& tokens) {
    const std::string path = registry_path(tokens);
    if (tokens.done())
        return [path] { registry_delete(path); };
    const std::string name = tokens.word();
    return [path, name] { registry_delete_value(path, name); };
}

// RIGHT|RIGHT...: names, or numbers.
static REGSAM read_rights(Tokens& tokens) {
    // clang-format off
    static const struct { const char* name; REGSAM right; } names[] = {
        {"KEY_QUERY_VALUE",        KEY_QUERY_VALUE},
        {"KEY_SET_VALUE",          KEY_SET_VALUE},
        {"KEY_CREATE_SUB_KEY",     KEY_CREATE_SUB_KEY},
        {"KEY_ENUMERATE_SUB_KEYS", KEY_ENUMERATE_SUB_KEYS},
        {"KEY_NOTIFY",             KEY_NOTIFY},
        {"KEY_READ",               KEY_READ},
        {"KEY_WRITE",              KEY_WRITE},
        {"KEY_ALL_ACCESS",         KEY_ALL_ACCESS},
        {"DELETE",                 DELETE},
    };
    // clang-format on
    const std::string text = tokens.word() + "|";
    REGSAM rights = 0;
    for (size_t start = 0; start < text.size(); start = text.find('|', start) + 1) {
        const std::string name = text.substr(start, text.find('|', start) - start);
        char* end = nullptr;
        REGSAM right = static_cast<REGSAM>(std::strtoul(name.c_str(), &end, 0));
        if (*end != 0 || name.empty())
            right = 0;
        for (const auto& row : names)
            right |= same_text(row.name, name) ? row.right : 0;
        if (right == 0)
            tokens.fail("no such right: " + name);
        rights |= right;
    }
    return rights;
}

static Action compile_refuse(Tokens& tokens) {
    const std::string path = registry_path(tokens);
    const REGSAM rights = tokens.done() ? EVERY_RIGHT : read_rights(tokens);
    return [path, rights] { registry_refuse(path, rights); };
}

static Action compile_expect_open(Tokens& tokens) {
    const std::string path = registry_path(tokens);
    const REGSAM rights = read_rights(tokens);
    return [path, rights] {
        bool found = false;
        std::string others;
        for (const KeyOpening& opening : registry().openings) {
            if (opening.at < mark_position() || plain_path(opening.path) != plain_path(path))
                continue;
            found = found || opening.access == rights;
            others += format(" 0x%x", opening.access);
        }
        expectation(found, "open " + path + format(" 0x%x, it was opened with", rights) +
                               (others.empty() ? " none" : others));
    };
}

// `check registry KEY VALUE = DATA`: data that looks like a number is compared as a number.
static std::string expected_text(Tokens& tokens) {
    std::string text;
    while (!tokens.done()) {
        const Token& token = tokens.list[tokens.at];
        std::uint32_t number = 0;
        const bool is_number = !token.quoted && token.text.starts_with("0x");
        const std::string error = is_number ? read_number(token.text, &number) : "";
        if (!error.empty())
            tokens.fail(error);
        const std::string part = tokens.word();
        text += (text.empty() ? "" : " ") + (token.quoted ? "\"" + part + "\"" : part);
    }
    return text;
}

static bool matches(const RegistryValue& value, const std::string& expected) {
    const std::string holds = shown_data(value.type, value.bytes);
    // Digits have no case; texts do.
    if (holds == expected || (holds.find('"') == std::string::npos && same_text(holds, expected)))
        return true;
    if (value.type != REG_DWORD || value.bytes.size() != 4 || expected.empty())
        return false;
    char* end = nullptr;
    const bool hex = lower(expected.substr(0, 2)) == "0x";
    const unsigned long long number = std::strtoull(expected.c_str(), &end, hex ? 16 : 10);
    DWORD stored = 0;
    std::memcpy(&stored, value.bytes.data(), 4);
    return *end == 0 && number == stored;
}

static Action compile_check(Tokens& tokens) {
    const std::string path = registry_path(tokens);
    const std::string name = tokens.word();
    if (tokens.done()) {
        const bool present = name == "present";
        if (!present && name != "absent")
            tokens.fail("present or absent expected");
        return [path, present] {
            expectation(registry_has_key(path) == present,
                        "registry " + path + (present ? " present" : " absent"));
        };
    }
    if (tokens.accept("absent"))
        return [path, name] {
            expectation(registry_value(path, name) == nullptr, "registry " + path + " " + name + " absent");
        };
    if (!tokens.accept("="))
        tokens.fail("= DATA or absent expected");
    const std::string expected = expected_text(tokens);
    return [path, name, expected] {
        const RegistryValue* value = registry_value(path, name);
        expectation(value != nullptr && matches(*value, expected),
                    "registry " + path + " " + name + " = " + expected + ", it " +
                        (value != nullptr ? "holds " + shown_data(value->type, value->bytes) : "is absent"));
    };
}

static void show_key(const Key& key, const std::string& path) {
    show_line("%s", path.c_str());
    for (const auto& [name, value] : key.values)
        show_line("  %s = %s", value.name.empty() ? "@" : value.name.c_str(),
                  shown_data(value.data.type, value.data.bytes).c_str());
    for (const auto& [name, child] : key.children)
        show_key(*child, path + "\\" + child->name);
}

static void show_registry(const std::string& path) {
    const std::string from = path.empty() ? "SVC" : path;
    const KeyRef key = find_key(from);
    if (key != nullptr)
        show_key(*key, from);
    else
        show_line("%s is absent", from.c_str());
}

static const Shows g_registryShown("registry", show_registry);

static const Commands g_commands({
    {"registry set", Use::Machine, compile_set,
     "KEY [VALUE dword|sz|expand|multi|binary DATA | VALUE raw TYPE HEX] - as another program would write "
     "it"},
    {"registry delete", Use::Machine, compile_delete,
     "KEY [VALUE] - the key with all below it, or the value"},
    {"registry refuse", Use::Machine, compile_refuse,
     "KEY [RIGHT|RIGHT...] - opening or creating it (with one of these rights) fails with error 5"},
    {"expect open", Use::Check, compile_expect_open,
     "KEY RIGHT|RIGHT... - KEY was opened or created since the mark with exactly these rights"},
    {"check registry", Use::Check, compile_check,
     "KEY VALUE = DATA | KEY VALUE absent | KEY present|absent - what the registry holds"},
});

} // namespace sim
