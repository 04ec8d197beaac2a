"""A C++ source as the mutator sees it: tokens, statements, and the places that no mutant may touch.

This is no compiler. It knows the layout that clang-format gives the sources, and a mutant that does not compile costs
one compiler run and counts for nothing.
"""

import bisect
import re

TOKEN = re.compile(
    r"""(?P<comment>//[^\n]*|/\*.*?\*/)
      |(?P<text>(?:L|u8|u|U)?"(?:\\.|[^"\\\n])*")
      |(?P<char>(?:L|u8|u|U)?'(?:\\.|[^'\\\n])+')
      |(?P<number>0[xX][0-9A-Fa-f']+[uUlL]*|\d[\d']*(?:\.\d+)?[uUlL]*)
      |(?P<name>[A-Za-z_]\w*)
      |(?P<mark><<=|>>=|<=>|\.\.\.|->|::|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|\S)""",
    re.X | re.S)

OPENING = {"(": ")", "[": "]", "{": "}"}
SKIPPED_DIRECTIVES = ("include", "pragma", "undef", "if", "ifdef", "ifndef", "else", "elif", "endif", "error")
DECLARATION_WORDS = {"static", "const", "constexpr", "auto", "using", "typedef", "struct", "class", "enum", "extern"}


class Token:
    __slots__ = ("kind", "text", "start", "end")

    def __init__(self, kind, text, start):
        self.kind, self.text, self.start, self.end = kind, text, start, start + len(text)


class Statement:
    """`kind`: call, assign, declare, return, jump, if, loop, switch, block, other. `block` numbers its block."""

    def __init__(self, kind, first, last, block, last_of_function=False):
        self.kind, self.first, self.last, self.block = kind, first, last, block
        self.last_of_function = last_of_function
        self.callee = ""
        self.condition = None  # (first, last) token of an if's or a while's condition, without the brackets
        self.result_type = ""  # of the function, for a return


class Source:
    def __init__(self, path, text):
        self.path, self.text = path, text
        self.tokens = [Token(m.lastgroup, m.group(), m.start()) for m in TOKEN.finditer(text)
                       if m.lastgroup != "comment"]
        self.line_starts = [0] + [m.end() for m in re.finditer("\n", text)]
        self.partner = self._match_brackets()
        self.statements = []
        self.blocks = 0
        self.untouchable = []  # [start, end) offsets
        self._find_untouchable()
        self._find_functions()
        self._find_trace_only()

    # ---- places ----

    def line(self, offset):
        return bisect.bisect_right(self.line_starts, offset)

    def lines_of(self, start, end):
        """The whole lines that hold [start, end): their offsets."""
        first = self.text.rfind("\n", 0, start) + 1
        last = self.text.find("\n", max(start, end - 1))
        return first, len(self.text) if last < 0 else last

    def touchable(self, start, end):
        return not any(start < b and a < end for a, b in self.untouchable)

    def _match_brackets(self):
        partner, stack = {}, []
        for i, token in enumerate(self.tokens):
            if token.kind != "mark":
                continue
            if token.text in OPENING:
                stack.append(i)
            elif token.text in (")", "]", "}"):
                while stack and OPENING[self.tokens[stack[-1]].text] != token.text:
                    stack.pop()
                if stack:
                    partner[stack[-1]] = i
                    partner[i] = stack.pop()
        return partner

    def _find_untouchable(self):
        for match in re.finditer(r"^[ \t]*#[ \t]*(\w+)(?:\\\n|[^\n])*", self.text, re.M):
            if match.group(1) in SKIPPED_DIRECTIVES:
                self.untouchable.append(match.span())
        for i, token in enumerate(self.tokens):
            following = self.tokens[i + 1].text if i + 1 < len(self.tokens) else ""
            if token.kind == "name" and following == "(" and i + 1 in self.partner and \
                    (token.text in ("static_assert", "alignas", "TRACE_NAME") or self.is_trace(i)):
                self.untouchable.append((token.start, self.tokens[self.partner[i + 1]].end))
            if token.text == "extern" and i + 1 < len(self.tokens) and self.tokens[i + 1].kind == "text":
                self.untouchable.append((token.start, self.tokens[i + 1].end))

    def is_trace(self, i):
        """A call of Trace, or of a relative of it such as TraceError; not its definition."""
        name = self.tokens[i].text
        if not name.startswith("Trace") or self.tokens[i + 1].text != "(":
            return False
        return i == 0 or self.tokens[i - 1].text in (";", "{", "}", ")", ":", "else", ",", "(")

    # ---- statements ----

    def _find_functions(self):
        i, end = 0, len(self.tokens)
        while i < end:
            if self.tokens[i].text == "{" and self._opens_code(i):
                i = self._block(i, self._result_type(i), True)
            i += 1

    def _opens_code(self, i):
        """Whether the brace at `i` opens the body of a function or a lambda."""
        k = i - 1
        while k >= 0 and self.tokens[k].text in ("const", "noexcept", "override", "mutable", "final"):
            k -= 1
        return k >= 0 and self.tokens[k].text in (")", "]") and i in self.partner

    def _result_type(self, i):
        k = i - 1
        while k >= 0 and self.tokens[k].text != ")":
            k -= 1
        k = self.partner.get(k, 0) - 1
        types = [t.text for t in self.tokens[max(0, k - 3):k + 1]]
        return "BOOL" if "BOOL" in types else "bool" if "bool" in types else ""

    def _block(self, i, result_type, outermost=False):
        """Reads the block whose brace is token `i`; returns its closing brace."""
        end = self.partner[i]
        self.blocks += 1
        block, k, last = self.blocks, i + 1, None
        while k < end:
            statement = self._statement(k, end, block, result_type)
            if statement is None:
                break
            k = statement.last + 1
            last = statement
        if outermost and last is not None:
            last.last_of_function = True
        return end

    def _statement(self, k, end, block, result_type):
        word = self.tokens[k].text
        if word in ("case", "default"):
            while k < end and self.tokens[k].text != ":":
                k += 1
            return Statement("label", k, min(k, end - 1), block)
        if word == "{" and k in self.partner:
            last = self._block(k, result_type)
            return Statement("block", k, last, block)
        if word in ("if", "while", "for", "switch"):
            return self._controlled(k, end, block, result_type)
        if word == "do":
            body = self._statement(k + 1, end, self._new_block(), result_type)
            last = body.last
            while last < end and self.tokens[last].text != ";":
                last += 1
            return self._add(Statement("loop", k, last, block))
        return self._plain(k, end, block, result_type)

    def _new_block(self):
        self.blocks += 1
        return self.blocks

    def _add(self, statement):
        self.statements.append(statement)
        return statement

    def _controlled(self, k, end, block, result_type):
        word, bracket = self.tokens[k].text, k + 1
        if self.tokens[bracket].text == "constexpr":
            bracket += 1
        close = self.partner.get(bracket)
        if close is None or close + 1 >= end:
            return None
        statement = Statement({"if": "if", "switch": "switch"}.get(word, "loop"), k, close, block)
        if word in ("if", "while"):
            statement.condition = (bracket + 1, close - 1)
        self._add(statement)
        body = self._statement(close + 1, end, self._new_block(), result_type)
        if body is None:
            return None
        statement.body = [body]
        statement.last = body.last
        if word == "if" and statement.last + 1 < end and self.tokens[statement.last + 1].text == "else":
            other = self._statement(statement.last + 2, end, self._new_block(), result_type)
            if other is None:
                return None
            statement.body.append(other)
            statement.last = other.last
        return statement

    def _plain(self, k, end, block, result_type):
        i = k
        while i < end and self.tokens[i].text != ";":
            if self.tokens[i].text == "{" and self._opens_code(i):
                self._block(i, self._result_type(i), True)
            i = self.partner.get(i, i) + 1 if self.tokens[i].text in OPENING else i + 1
        if i >= end:
            return None
        statement = Statement("other", k, i, block)
        self._classify(statement)
        statement.result_type = result_type
        return self._add(statement)

    def _classify(self, statement):
        k, last = statement.first, statement.last
        words = self.tokens[k:last]
        if not words:
            return
        first = words[0].text
        if first == "return":
            statement.kind = "return"
            return
        if first in ("break", "continue", "goto"):
            statement.kind = "jump"
            return
        if first in DECLARATION_WORDS:
            statement.kind = "declare"
            return
        if first in ("++", "--") or words[-1].text in ("++", "--"):
            statement.kind = "assign"
            return
        i = k
        if first == "(" and self.tokens[k + 1].text == "void":  # (void)Call();
            i = k + 3
        start = i
        while i < last:
            text, kind = self.tokens[i].text, self.tokens[i].kind
            if text in ("=", "+=", "-=", "|=", "&=", "^=", "<<=", ">>=", "*=", "/="):
                statement.kind = "assign"
                return
            if i > start and kind == "name" and (self.tokens[i - 1].kind == "name" or
                                                 self.tokens[i - 1].text in ("*", "&", ">") and i - 1 > start):
                statement.kind = "declare"
                return
            if text == "(" and self.partner.get(i) == last - 1 and i > start and self.tokens[i - 1].kind == "name":
                statement.kind = "call"
                statement.callee = self.tokens[i - 1].text
                return
            i = self.partner.get(i, i) + 1 if text in OPENING else i + 1

    def _find_trace_only(self):
        """A condition under which nothing but a trace message stands decides nothing that anyone sees."""
        for statement in self.statements:
            if statement.kind == "if" and statement.condition and len(getattr(statement, "body", ())) == 1 and \
                    self._only_traces(statement.body[0]):
                statement.trace_only = True

    def _only_traces(self, body):
        inside = [s for s in self.statements if body.first <= s.first and s.last <= body.last]
        return bool(inside) and all(s.kind == "call" and s.callee.startswith("Trace") for s in inside)
