"""The operators: each yields single changes of a source as (operator, start, end, replacement)."""

import hashlib
import re

RELATIONS = {"==": ["!="], "!=": ["=="], "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"]}
ARITHMETIC = {"+": "-", "-": "+", "*": "/", "/": "*", "%": "/", "&": "|", "|": "&", "^": "|", "<<": ">>", ">>": "<<",
              "+=": "-=", "-=": "+=", "|=": "&=", "&=": "|=", "^=": "|=", "<<=": ">>=", ">>=": "<<=",
              "++": "--", "--": "++"}
TRUTH = {"TRUE": "FALSE", "FALSE": "TRUE", "true": "false", "false": "true"}

# A right or a mode becomes the next of its family.
ACCESS_FAMILIES = [
    "KEY_READ KEY_ALL_ACCESS",
    "KEY_QUERY_VALUE KEY_SET_VALUE",
    "KEY_WRITE KEY_READ",
    "KEY_NOTIFY KEY_QUERY_VALUE",
    "KEY_WOW64_64KEY KEY_WOW64_32KEY",
    "GENERIC_READ GENERIC_WRITE",
    "FILE_SHARE_READ FILE_SHARE_WRITE",
    "FULL_ACCESS GENERIC_READ",
    "FULL_SHARE FILE_SHARE_READ",
    "OPEN_EXISTING OPEN_ALWAYS CREATE_ALWAYS CREATE_NEW",
    "SC_MANAGER_ALL_ACCESS SC_MANAGER_CONNECT SC_MANAGER_ENUMERATE_SERVICE",
    "SERVICE_ALL_ACCESS SERVICE_QUERY_STATUS SERVICE_STOP",
    "TOKEN_ADJUST_PRIVILEGES TOKEN_QUERY",
    "TOKEN_ALL_ACCESS TOKEN_QUERY",
    "TOKEN_DUPLICATE TOKEN_QUERY",
    "PROCESS_ALL_ACCESS PROCESS_QUERY_INFORMATION",
    "PROCESS_TERMINATE SYNCHRONIZE",
    "EVENT_ALL_ACCESS EVENT_MODIFY_STATE SYNCHRONIZE",
    "MUTEX_ALL_ACCESS SYNCHRONIZE",
    "WRITE_DAC READ_CONTROL",
    "DESKTOP_CREATEWINDOW DESKTOP_READOBJECTS",
    "DESKTOP_SWITCHDESKTOP DESKTOP_READOBJECTS",
    "DESKTOP_WRITEOBJECTS DESKTOP_READOBJECTS",
    "HKEY_LOCAL_MACHINE HKEY_CURRENT_USER",
    "HKEY_USERS HKEY_LOCAL_MACHINE",
    "HKEY_CURRENT_USER HKEY_USERS",
]
ACCESS = {}
for family in ACCESS_FAMILIES:
    names = family.split()
    for at, name in enumerate(names):
        ACCESS.setdefault(name, names[(at + 1) % len(names)])

RELEASE = re.compile(r"Close|Release|Free|Destroy|Unregister|Revert|Drop|^(Kill|Clear|TerminateThread|CoUninitialize|"
                     r"VariantClear|UnhookWinEvent)")
EVENT = re.compile(r"^(SetEvent|ResetEvent|PulseEvent|SignalObjectAndWait|ReleaseSemaphore)$")
ROW = re.compile(r"^(?P<indent>[ \t]*)(?P<head>\{|[A-Z]\()(?P<body>.*?)(?P<tail>[\})],?[ \t]*\\?)[ \t]*(?://.*)?$", re.M)
MAX_BITS = 6  # of one long constant


def spaced(source, token):
    """A binary operator stands between spaces; a template's bracket, a pointer's star and a sign do not."""
    return source.text[token.start - 1:token.start] == " " and source.text[token.end:token.end + 1] in (" ", "\n")


def choice(seed, count):
    return int(hashlib.sha1(seed.encode()).hexdigest(), 16) % count


def operands(source):
    for i, token in enumerate(source.tokens):
        if token.kind == "mark":
            yield from marks(source, i, token)
        elif token.kind == "number":
            for value in numbers(source, i, token):
                yield "constant", token.start, token.end, value
        elif token.text in TRUTH:
            yield "truth", token.start, token.end, TRUTH[token.text]
        elif token.text in ACCESS and source.text[source.lines_of(token.start, token.end)[0]] != "#":
            yield "access", token.start, token.end, ACCESS[token.text]
        elif token.kind == "text":
            yield from letters(source, token)


def marks(source, i, token):
    text = token.text
    before, after = source.tokens[i - 1], source.tokens[i + 1] if i + 1 < len(source.tokens) else None
    if text in ("&&", "||") and spaced(source, token):
        yield "condition", token.start, token.end, "||" if text == "&&" else "&&"
    elif text in RELATIONS and spaced(source, token) and before.text not in ("template", "operator"):
        for other in RELATIONS[text]:
            yield "relation", token.start, token.end, other
    elif text in ("|", "+") and spaced(source, token) and after is not None and flag(before) and flag(after):
        yield "flag", before.start, after.start, ""
        yield "flag", before.end, after.end, ""
    elif text in ("++", "--") or text in ARITHMETIC and spaced(source, token) and before.text != "operator":
        yield "arithmetic", token.start, token.end, ARITHMETIC[text]
    elif text == "~" and after is not None and before.text in ("&", "=", "&=", "("):
        yield "arithmetic", token.start, token.end, ""
    elif text == "!" and before.text in ("&&", "||", "=", "return", "(", "?", ","):
        yield "condition", token.start, token.end, ""
    elif text == "?" and spaced(source, token):
        yield from choices(source, i)


def flag(token):
    return token.kind == "name" and token.text.isupper() and len(token.text) > 2


def choices(source, i):
    """a ? b : c becomes !(a) ? b : c."""
    k = i - 1
    while k > 0:
        token = source.tokens[k]
        if token.text in (")", "]", "}") and k in source.partner:
            k = source.partner[k]
        elif token.text in ("(", "=", "return", ",", "{", ";", "?", ":", "["):
            break
        k -= 1
    first, last = source.tokens[k + 1], source.tokens[i - 1]
    yield "condition", first.start, last.end, "!(" + source.text[first.start:last.end] + ")"


def numbers(source, i, token):
    match = re.match(r"^(0[xX][0-9A-Fa-f]+|\d+)([uUlL]*)$", token.text.replace("'", ""))
    if match is None:
        return
    digits, suffix = match.groups()
    value = int(digits, 16 if digits[:2] in ("0x", "0X") else 10)
    is_array = source.tokens[i - 1].text == "[" and source.tokens[i + 1].text == "]" and \
        source.tokens[i + 2].text in (";", "=", ",")
    if is_array:  # room to spare shows nowhere
        if value > 1:
            yield f"{value - 1}{suffix}"
        return
    if digits[:2].lower() == "0x":
        width = len(digits) - 2
        others = [value ^ 1] + [value & ~(1 << bit) for bit in range(1, 64) if value >> bit & 1]
        if len(others) > MAX_BITS:
            at = choice(token.text, len(others))
            others = [others[(at + k * 5) % len(others)] for k in range(MAX_BITS)]
        for other in dict.fromkeys(others):
            yield f"0x{other:0{width}X}{suffix}"
        return
    yield f"{value + 1}{suffix}"
    if value > 0:
        yield f"{value - 1}{suffix}"


def letters(source, token):
    if token.text.endswith('\\n"'):  # a trace message that goes through a helper first
        return
    at = token.text.index('"') + 1
    escapes = set()
    for match in re.finditer(r"\\x[0-9A-Fa-f]+|\\.|%[-0-9.]*[a-zA-Z]+", token.text):
        escapes.update(range(*match.span()))
    places = [k for k in range(at, len(token.text) - 1) if token.text[k].isalnum() and k not in escapes]
    if not places:
        return
    k = places[choice(token.text, len(places))]
    letter = token.text[k]
    other = "q" if letter in "zZ9" else chr(ord(letter) + 1)
    yield "letter", token.start, token.end, token.text[:k] + other + token.text[k + 1:]


def statements(source):
    for statement in source.statements:
        first, last = source.tokens[statement.first], source.tokens[statement.last]
        start, end = first.start, last.end
        if statement.kind == "call":
            name = statement.callee
            operator = "event" if EVENT.match(name) else "release" if RELEASE.search(name) else "call"
            yield operator, start, end, ";"
        elif statement.kind == "assign":
            yield "assignment", start, end, ";"
        elif statement.kind == "jump":
            yield "return", start, end, ";"
        elif statement.kind == "return":
            if not statement.last_of_function:
                yield "return", start, end, ";"
            value = source.text[source.tokens[statement.first + 1].start:last.start]
            if statement.last - statement.first > 2 and statement.result_type and not plain_relation(value):
                yield "condition", start, end, f"return !({value});"
        if statement.condition:
            a, b = source.tokens[statement.condition[0]].start, source.tokens[statement.condition[1]].end
            text = source.text[a:b]
            if text not in ("true", "TRUE") and not plain_relation(text) and \
                    not re.search(r";|(?<![=!<>])=(?!=)", text):
                yield "condition", a, b, f"!({text})"


def plain_relation(text):
    """One relation, which has its own operator."""
    return len(re.findall(r" (?:==|!=|<|>|<=|>=) ", text)) == 1 and not re.search(r"&&|\|\|| \? ", text)


def order(source):
    """Neighbours in a block exchanged: what does not compile then was not independent."""
    by_block = {}
    for statement in source.statements:
        by_block.setdefault(statement.block, []).append(statement)
    for block in by_block.values():
        block.sort(key=lambda s: s.first)
        for one, two in zip(block, block[1:]):
            if two.first != one.last + 1 or not (movable(source, one) and movable(source, two)):
                continue
            if one.kind == "declare" and two.kind == "declare":
                continue
            a, b = source.tokens[one.first].start, source.tokens[one.last].end
            c, d = source.tokens[two.first].start, source.tokens[two.last].end
            yield "order", a, d, source.text[c:d] + source.text[b:c] + source.text[a:b]


def movable(source, statement):
    if statement.kind == "call":
        return not statement.callee.startswith("Trace")
    if statement.kind == "declare":
        return any(t.text == "(" for t in source.tokens[statement.first:statement.last])
    return statement.kind in ("assign", "if")


def rows(source):
    """Rows of tables: one left out, two neighbours' keys exchanged, two steps of one row exchanged."""
    previous = None
    for match in ROW.finditer(source.text):
        body = match.group("body")
        fields = split_fields(body)
        if match.group("head") == "{" and not match.group("tail").startswith("}") or len(fields) < 1:
            previous = None
            continue
        if not match.group("tail").rstrip("\\ \t").endswith(",") and match.group("head") == "{":
            if previous is None:
                continue
        yield "row", match.start(), match.end(), "\\" if match.group("tail").endswith("\\") else ""
        if previous is not None and source.line(previous.start()) + 1 == source.line(match.start()):
            other = split_fields(previous.group("body"))
            if len(other) == len(fields) and other[0] != fields[0]:
                a, b = previous.start("body"), match.start("body")
                middle = source.text[a + len(other[0]):b]
                yield "row", a, b + len(fields[0]), fields[0] + middle + other[0]
        yield from steps(match)
        previous = match


def steps(match):
    """{..., {A, B}}: B before A."""
    inner = re.search(r"\{([^{}]*)\}\s*$", match.group("body"))
    if inner is None:
        return
    fields = split_fields(inner.group(1))
    at = match.start("body") + inner.start(1)
    offsets = []
    for field in fields:
        offsets.append(at)
        at += len(field) + 1
    for k in range(len(fields) - 1):
        one, two = fields[k].strip(), fields[k + 1].strip()
        if one != two and "(" in one + two:
            start = offsets[k] + len(fields[k]) - len(fields[k].lstrip())
            yield "order", start, offsets[k + 1] + len(fields[k + 1].rstrip()), f"{two}, {one}"


def split_fields(body):
    fields, depth, start, quoted = [], 0, 0, False
    for k, letter in enumerate(body):
        if letter == '"' and body[k - 1:k] != "\\":
            quoted = not quoted
        if quoted:
            continue
        if letter in "({[<" and body[k - 1:k + 1] != " <":
            depth += 1
        elif letter in ")}]>" and body[k - 1:k + 1] not in ("->", " >"):
            depth -= 1
        elif letter == "," and depth == 0:
            fields.append(body[start:k])
            start = k + 1
    fields.append(body[start:])
    return fields if depth == 0 else []


def inf_changes(text):
    """The driver package: a line left out, a number changed, one letter of a line changed."""
    for match in re.finditer(r"^[^;\s\[][^\n]*|^\[[^\n]*\]", text, re.M):
        line = match.group().split(";")[0].rstrip()
        start, end = match.start(), match.start() + len(line)
        if not line.startswith("["):
            yield "row", start, end, ""
        for number in re.finditer(r"\b(0x[0-9A-Fa-f]+|\d+)\b", line):
            is_hex = number.group().startswith("0x")
            value = int(number.group(), 16 if is_hex else 10) + 1
            form = f"0x{value:X}" if is_hex else str(value)
            yield "constant", start + number.start(), start + number.end(), form
        places = [k for k, letter in enumerate(line) if letter.isalpha()]
        if places:
            k = places[choice(line, len(places))]
            other = "q" if line[k] in "zZ" else chr(ord(line[k]) + 1)
            yield "letter", start + k, start + k + 1, other


def changes(source):
    trace_only = [(source.tokens[s.condition[0]].start, source.tokens[s.condition[1]].end)
                  for s in source.statements if getattr(s, "trace_only", False)]
    for group in (operands, statements, order, rows):
        for operator, start, end, replacement in group(source):
            if operator not in ("order", "row") and not source.touchable(start, end):
                continue
            if operator in ("condition", "relation", "truth") and any(a <= start and end <= b for a, b in trace_only):
                continue
            if source.text[start:end] != replacement:
                yield operator, start, end, replacement
