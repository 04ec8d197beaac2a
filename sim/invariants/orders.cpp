#include "sim/invariants/orders.h"

#include <algorithm>
#include <numeric>

#include "sim/invariants/at_rest.h"
#include "sim/machine/machine.h"
#include "sim/script/expectations.h"
#include "sim/script/script.h"

namespace sim {

constexpr size_t MOST_OPERATIONS = 5; // 120 orders

// Whether each change comes before the operation that tells of it, and behind an older one of the same.
static bool is_possible(const std::vector<size_t>& order, size_t operations,
                        const std::vector<ChangedAnswer>& changes) {
    const auto place = [&order](size_t number) { return std::find(order.begin(), order.end(), number); };
    for (size_t i = 0; i < changes.size(); ++i) {
        if (place(changes[i].operation) < place(operations + i))
            return false;
        for (size_t later = i + 1; later < changes.size(); ++later) {
            if (changes[i].what == changes[later].what && place(operations + later) < place(operations + i))
                return false;
        }
    }
    return true;
}

bool visit_orders(size_t operations, const std::vector<ChangedAnswer>& changes,
                  const std::function<bool(const std::vector<size_t>&)>& visit) {
    std::vector<size_t> order(operations);
    std::iota(order.begin(), order.end(), size_t{0});
    do {
        std::vector<size_t> all(changes.size());
        std::iota(all.begin(), all.end(), operations);
        all.insert(all.end(), order.begin(), order.end());
        if (visit(all))
            return true;
    } while (std::next_permutation(order.begin(), order.end()));
    if (changes.empty())
        return false;
    order.resize(operations + changes.size());
    std::iota(order.begin(), order.end(), size_t{0});
    do {
        if (is_possible(order, operations, changes) && visit(order))
            return true;
    } while (std::next_permutation(order.begin(), order.end()));
    return false;
}

// ---- of a script ----

namespace {

using Lines = std::vector<const ScriptLine*>;

// The script up to the check that runs, in parts.
struct Disorder {
    Lines before;
    Lines operations; // in `together`, and those `within` a span right behind it
    Lines answers;    // that change, by `changes`
    std::vector<ChangedAnswer> changes;
    Lines behind;
};

} // namespace

static bool is_answer(const ScriptLine& line) {
    return line.use == Use::Machine && line.text.starts_with("firmware ");
}

// How long answers take must not matter: nothing takes time in the orders.
static void add_unless_slow(Lines* lines, const ScriptLine& line) {
    if (!is_answer(line) || line.text.find(" takes ") == std::string::npos)
        lines->push_back(&line);
}

static void add_operations(Disorder* parts, const std::vector<ScriptLine>& block) {
    for (const ScriptLine& line : block) {
        if (is_answer(line)) {
            parts->changes.push_back({parts->operations.size(), line.text.substr(0, line.text.find('='))});
            parts->answers.push_back(&line);
        } else if (line.action) {
            parts->operations.push_back(&line);
        }
    }
}

static Disorder parts_of(const Script& script, size_t check) {
    using Kind = ScriptLine::Kind;
    size_t begin = check;
    while (begin > 0 && script.lines[begin].kind != Kind::Together)
        --begin;
    Disorder parts;
    for (size_t i = 0; i < begin; ++i)
        add_unless_slow(&parts.before, script.lines[i]);
    size_t end = begin;
    for (; end < check && (end == begin || script.lines[end].kind == Kind::Within); ++end)
        add_operations(&parts, script.lines[end].block);
    for (; end < check; ++end)
        add_unless_slow(&parts.behind, script.lines[end]);
    // One of which nobody is told.
    for (ChangedAnswer& change : parts.changes)
        change.operation = std::min(change.operation, parts.operations.size() - 1);
    return parts;
}

// What an order leaves, on a machine of its own.
static std::string left_by(const Disorder& parts, const std::vector<size_t>& order) {
    Machine machine;
    Lines lines = parts.before;
    for (const size_t number : order)
        lines.push_back(number < parts.operations.size() ? parts.operations[number]
                                                         : parts.answers[number - parts.operations.size()]);
    lines.insert(lines.end(), parts.behind.begin(), parts.behind.end());
    run_parts(lines);
    return state_at_rest();
}

// What only one of two states has, without the values: a shorter script that fails alike may have others.
static std::string difference(const std::string& found, const std::string& left) {
    std::string text;
    for (size_t at = 0; at < found.size();) {
        const size_t end = found.find('\n', at) + 1;
        const std::string line = found.substr(at, end - at);
        if (left.find(line) == std::string::npos && text.size() < 200)
            text += (text.empty() ? "" : ", ") + line.substr(0, line.find_first_of("=:\n"));
        at = end;
    }
    return text;
}

// ---- commands ----

static void check_orders() {
    size_t line = 0;
    const Script* script = running_script(&line);
    const Disorder parts = parts_of(*script, line);
    if (parts.operations.empty() || parts.operations.size() > MOST_OPERATIONS || parts.changes.size() > 2)
        return expectation(false, "orders: `together` with one to five operations and two changes before");
    const std::string found = state_at_rest();
    std::string first;
    const bool explained = visit_orders(parts.operations.size(), parts.changes, [&](const auto& order) {
        const std::string left = left_by(parts, order);
        if (first.empty())
            first = left;
        return left == found;
    });
    expectation(explained, "orders: none leaves " + difference(found, first));
}

static Action compile_check_orders(Tokens&) {
    return check_orders;
}

static const Commands g_commands({
    {"check orders", Use::Check, compile_check_orders,
     "- some order of the last together's commands (and of those within, right behind it), one after "
     "another, would have left the same"},
});

} // namespace sim
