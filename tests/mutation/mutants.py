"""Makes the mutants of a source: each a piece of its text and what stands there instead.

A mutated place becomes `(Mutants::On(17) ? (a - b) : (a + b))`, so that one build holds them all. What stands instead
is made from the unchanged text; only the last branch is rewritten further. Tables are filled anew when a mutant is
switched on (Maker.variable), because their own values are made by the compiler.
"""

import collections
import dataclasses
import re

from clang.cindex import CursorKind as Kind
from clang.cindex import TypeKind

from rewriting import Edits, Source, span

# What stands in place of an operator; for && and || see Maker.logical.
OPERATORS = {
    "+": ("arithmetic", ["-"]), "-": ("arithmetic", ["+"]), "*": ("arithmetic", ["+"]), "/": ("arithmetic", ["*"]),
    "%": ("arithmetic", ["*"]), "<<": ("shift", [">>"]), ">>": ("shift", ["<<"]),
    "&": ("bitwise", ["|"]), "|": ("bitwise", ["&"]), "^": ("bitwise", ["|"]),
    "<": ("relational", ["<=", ">="]), ">": ("relational", [">=", "<="]), "<=": ("relational", ["<", ">"]),
    ">=": ("relational", [">", "<"]), "==": ("relational", ["!="]), "!=": ("relational", ["=="]),
    "+=": ("assignment", ["-=", "="]), "-=": ("assignment", ["+=", "="]), "*=": ("assignment", ["+="]),
    "/=": ("assignment", ["*="]), "%=": ("assignment", ["/="]), "<<=": ("assignment", [">>="]),
    ">>=": ("assignment", ["<<="]), "&=": ("assignment", ["|=", "="]), "|=": ("assignment", ["&=", "="]),
    "^=": ("assignment", ["|="]), "++": ("assignment", ["--"]), "--": ("assignment", ["++"]),
}
MASKS = {"&", "|", "^", "&=", "|=", "^="}
DECIDED = {"<", ">", "<=", ">=", "==", "!=", "&&", "||"}  # conditions that have mutants of their own
INTEGERS = {TypeKind.BOOL, TypeKind.CHAR_U, TypeKind.UCHAR, TypeKind.USHORT, TypeKind.UINT, TypeKind.ULONG,
            TypeKind.ULONGLONG, TypeKind.CHAR_S, TypeKind.SCHAR, TypeKind.SHORT, TypeKind.INT, TypeKind.LONG,
            TypeKind.LONGLONG, TypeKind.CHAR16, TypeKind.ENUM}
ASSIGNS = {Kind.COMPOUND_ASSIGNMENT_OPERATOR}
LOOPS = {Kind.WHILE_STMT, Kind.DO_STMT, Kind.FOR_STMT}
WHOLE = {Kind.INTEGER_LITERAL, Kind.CHARACTER_LITERAL, Kind.STRING_LITERAL, Kind.CXX_UNARY_EXPR, Kind.VAR_DECL,
         Kind.CASE_STMT}  # their procedures look at what is in them
BODIES = {Kind.COMPOUND_STMT, Kind.IF_STMT, Kind.CASE_STMT, Kind.DEFAULT_STMT, Kind.CXX_FOR_RANGE_STMT, *LOOPS}
LETTER = re.compile(r"%[0-9]*l?[a-zA-Z%]|\\(?:x[0-9A-Fa-f]+|[0-7]{1,3}|.)|(?P<letter>.)", re.DOTALL)


@dataclasses.dataclass
class Mutant:
    number: int
    file: str
    function: str
    operator: str
    line: int
    text: str  # of the line
    change: str  # "what stands there => what stands there instead"
    table: str = ""  # the table that it changes, which is reached by whoever names it


def unwrapped(cursor):
    """The expression itself, without implicit casts and parentheses."""
    while cursor.kind in (Kind.UNEXPOSED_EXPR, Kind.PAREN_EXPR):
        inner = list(cursor.get_children())
        if len(inner) != 1:
            break
        cursor = inner[0]
    return cursor


def is_integer(cursor):
    return cursor.type.get_canonical().kind in INTEGERS


def is_constant(cursor):
    """True for the name of a constant: of an enumeration, or an integer that the compiler knows."""
    named = cursor.referenced
    if named is None or not is_integer(cursor):
        return False
    if named.kind == Kind.ENUM_CONSTANT_DECL:
        return True
    return named.kind == Kind.VAR_DECL and any(token.spelling == "constexpr" for token in named.get_tokens())


class Maker:
    """The mutants of one source, numbered from `first` on; `reaches` has a number for the entry of each function."""

    def __init__(self, path, first, top=None, flags=None):
        self.source = Source(path, **({"top": top} if top else {}), flags=flags)
        self.edits = Edits(self.source.text)
        self.next = first
        self.mutants = []
        self.entries = {}  # number: the tables that the function names
        self.function, self.table = "", ""
        self.spelled = set()  # where literals stand for their letters, not for an address
        self.loosened = []  # the tables that are constant no longer
        self.done = set()

    def make(self):
        for cursor in self.source.declarations():
            if cursor.kind == Kind.FUNCTION_DECL and cursor.is_definition():
                self.function = cursor.spelling
                body = list(cursor.get_children())[-1]
                self.enter(body)
                self.visit(body, cursor)
            elif cursor.kind == Kind.VAR_DECL:
                self.variable(cursor)
        return self.edits.apply()

    def take(self):
        self.next += 1
        return self.next - 1

    def enter(self, body):
        names = set()
        for cursor in body.walk_preorder():
            named = cursor.referenced if cursor.kind == Kind.DECL_REF_EXPR else None
            if named is not None and named.kind == Kind.VAR_DECL:
                names.add(named.spelling)
        number = self.take()
        self.entries[number] = sorted(names)
        self.edits.insert(span(body)[0] + 1, f" Mutants::On({number});")

    def text(self, cursor):
        return self.source.slice(*span(cursor))

    def variable(self, cursor):
        """What stands at the top of a file keeps its initializer, and is filled with the rewritten one later."""
        words = [token.spelling for token in cursor.get_tokens()]
        array = cursor.type.get_canonical().kind in (TypeKind.CONSTANTARRAY, TypeKind.INCOMPLETEARRAY)
        values = list(self.initializers(cursor))
        if not values or "constexpr" in words and not array:
            return
        self.function = self.table = cursor.spelling
        self.expect(values[-1], cursor.type)
        outer, self.edits = self.edits, Edits(self.source.text)
        self.visit(values[-1], cursor)
        fresh = self.edits.apply(*span(values[-1])).decode()
        self.edits, self.table = outer, ""
        self.loosen(cursor)
        name = cursor.spelling
        fill = f"std::remove_const_t<decltype({name})> fresh = {fresh}; {name} = fresh;"
        if array:
            fill = (f"std::remove_const_t<std::remove_reference_t<decltype({name}[0])>> fresh[] = {fresh}; "
                    f"__builtin_memcpy({name}, fresh, sizeof fresh);")
        self.edits.insert(len(self.source.text), f"static const bool {name}IsFilled = "
                                                 f"Mutants::WhenSwitched([] {{ {fill} }});\n")

    def loosen(self, cursor):
        """Takes its const away, but for what a pointer points to."""
        heads = [token for token in cursor.get_tokens() if token.extent.end.offset <= cursor.location.offset]
        consts = [token for token in heads if token.spelling in ("const", "constexpr")]
        pointer = any(token.spelling == "*" for token in heads)
        wanted = consts[-1:] if not pointer or heads[-1].spelling == "const" else []
        for token in wanted:
            self.edits.replace(token.extent.start.offset, token.extent.end.offset, "")
            self.loosened.append(cursor.spelling)

    # One place, several changes: each has a number of its own.

    def place(self, operator, start, end, changes):
        """Puts `changes` in place of the text from start to end: pairs of what stands there and how it is told."""
        key = (start, end, operator)
        if key in self.done or not changes:
            return
        self.done.add(key)
        before, after = "", ""
        for instead, told in changes:
            number = self.note(operator, start, told)
            before += f"(Mutants::On({number}) ? ({instead}) : "
            after += ")"
        self.edits.wrap(start, end, before + "(", ")" + after)

    def note(self, operator, offset, told):
        number = self.take()
        self.mutants.append(Mutant(number, self.source.path, self.function, operator, self.source.line(offset),
                                   self.source.line_text(offset), " ".join(told.split()), self.table))
        return number

    def change(self, operator, cursor, *instead):
        old = self.text(cursor)
        self.place(operator, *span(cursor), [(new, f"{old} => {new}") for new in instead])

    # What a cursor gives

    def visit(self, cursor, parent, mask=False):
        """From the inside to the outside, so that what is wrapped twice is wrapped in that order."""
        if self.source.within_macro(cursor) or cursor.kind in (Kind.ASM_STMT, Kind.STATIC_ASSERT):
            return
        method = getattr(self, cursor.kind.name.lower(), None)
        if cursor.kind not in WHOLE:
            for child in cursor.get_children():
                self.visit(child, cursor, self.is_mask(cursor, mask))
        if method is not None:
            method(cursor, parent, mask)
        if parent.kind in BODIES:
            self.statement(cursor, parent)

    def is_mask(self, cursor, mask):
        if cursor.kind in (Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR):
            found = self.source.operator(cursor)
            return found is not None and found[2] in MASKS
        return mask and cursor.kind in (Kind.UNEXPOSED_EXPR, Kind.PAREN_EXPR, Kind.UNARY_OPERATOR,
                                        Kind.CXX_STATIC_CAST_EXPR)

    def binary_operator(self, cursor, parent, _mask):
        found = self.source.operator(cursor)
        if found is None or found[2] == ",":
            return
        start, end, name = found
        if name in ("&&", "||"):
            self.logical(cursor, name)
        elif name in OPERATORS:
            operator, others = OPERATORS[name]
            left, right = self.source.slice(span(cursor)[0], start), self.source.slice(end, span(cursor)[1])
            kinds = {child.type.get_canonical().kind for child in cursor.get_children()}
            if name == "-" and kinds == {TypeKind.POINTER}:
                others = ["+ 1 -"]
            self.place(operator, *span(cursor), [(left + other + right, f"{left}{name}{right} => {other}")
                                                 for other in others])

    compound_assignment_operator = binary_operator

    def logical(self, cursor, name):
        left, right = (self.text(child) for child in cursor.get_children())
        other = "||" if name == "&&" else "&&"
        old = self.text(cursor)
        changes = [(f"({left}) {other} ({right})", f"{old} => {other}")]
        changes += [(f"static_cast<bool>({side})", f"{old} => {side}") for side in (left, right)]
        self.place("logical", *span(cursor), changes)

    def unary_operator(self, cursor, _parent, _mask):
        text = self.text(cursor)
        (operand,) = cursor.get_children()
        inner = self.text(operand)
        if text.startswith(("++", "--")) or text.endswith(("++", "--")):
            name = "++" if "++" in text else "--"
            self.change("assignment", cursor, text.replace(name, OPERATORS[name][1][0]))
        elif text[0] == "!":
            self.change("unary", cursor, f"static_cast<bool>({inner})")
        elif text[0] in "~-" and is_integer(cursor):
            self.change("unary", cursor, inner)

    def integer_literal(self, cursor, _parent, mask):
        text = self.text(cursor)
        if text in ("true", "false"):
            self.cxx_bool_literal_expr(cursor, _parent, mask)
            return
        value = number_of(text)
        if mask:
            self.change("constant", cursor, *self.flipped(text))
        else:
            ones = [f"{text} + 1"] + ([f"{text} - 1"] if value != 0 else [])
            self.change("constant", cursor, *ones, *(["0"] if value is not None and value > 1 else []))

    @staticmethod
    def flipped(text):
        """The lowest bit that is set, and the lowest that is not, turned over."""
        return f"{text} & ({text} - 1)", f"{text} | ({text} + 1)"

    def cxx_bool_literal_expr(self, cursor, _parent, _mask):
        self.change("constant", cursor, "false" if self.text(cursor) == "true" else "true")

    def character_literal(self, cursor, _parent, _mask):
        text = self.text(cursor)
        self.change("constant", cursor, f"static_cast<decltype({text})>({text} + 1)")

    def cxx_unary_expr(self, cursor, _parent, _mask):  # sizeof and its like
        text = self.text(cursor)
        self.change("constant", cursor, f"{text} + 1", f"{text} - 1")

    def decl_ref_expr(self, cursor, _parent, mask):
        if not is_constant(cursor):
            return
        text = self.text(cursor)
        values = self.flipped(text) if mask else (f"{text} + 1", f"{text} - 1")
        kind = f"std::remove_const_t<decltype({text})>"
        changes = [(f"static_cast<{kind}>({value})", f"{text} => {value}") for value in values]
        self.place("constant", *span(cursor), changes)

    def string_literal(self, cursor, _parent, _mask):
        letters = self.changed_text(cursor)
        if letters is None:
            return
        old, new = letters
        start, end = span(cursor)
        if (start, end) in self.spelled:
            self.letters(start, end, old, new)
        else:
            self.place("text", start, end, [(new, f"{old} => {new}")])

    def changed_text(self, cursor):
        """The literal, and with another letter in the middle of it; None where no letter can be changed."""
        old = self.text(cursor)
        first = re.match(r'[uUL8]*"(?:\\.|[^"\\])*"', old)
        places = [found.start() for found in LETTER.finditer(old, old.index('"') + 1, first.end() - 1)
                  if found["letter"] is not None] if first else []
        if not places:
            return None
        at = places[len(places) // 2]
        return old, old[:at] + ("#" if old[at] != "#" else "*") + old[at + 1:]

    def letters(self, start, end, old, new):
        number = self.note("text", start, f"{old} => {new}")
        one = [found[0] for found in LETTER.finditer(old, 1, len(old) - 1)]
        other = [found[0] for found in LETTER.finditer(new, 1, len(new) - 1)]
        if any(len(letter) > 1 and letter[0] == "%" for letter in one):
            one, other = ([part for letter in letters for part in (letter if letter[0] == "%" else [letter])]
                          for letters in (one, other))
        quoted = [f"'{quote(a)}'" if a == b else f"Mutants::On({number}) ? '{quote(b)}' : '{quote(a)}'"
                  for a, b in zip(one, other)]
        self.edits.replace(start, end, "{" + ", ".join([*quoted, "0"]) + "}")

    def call_expr(self, cursor, _parent, _mask):
        named = cursor.referenced
        given = list(cursor.get_arguments())
        if named is None or named.kind != Kind.FUNCTION_DECL or "(" not in self.text(cursor):
            return
        start, end = span(cursor)
        changes = []
        for left, right in zip(given, given[1:]):
            alike = left.type.get_canonical().spelling == right.type.get_canonical().spelling
            if alike and self.text(left) != self.text(right) and span(left)[1] > span(left)[0]:
                one, two = span(left), span(right)
                swapped = (self.source.slice(start, one[0]) + self.text(right) + self.source.slice(one[1], two[0]) +
                           self.text(left) + self.source.slice(two[1], end))
                changes.append((swapped, f"{self.text(cursor)} => {swapped}"))
        self.place("arguments", start, end, changes)

    # Statements

    def statement(self, cursor, parent):
        if self.is_condition(cursor, parent):
            self.condition(cursor)
        elif self.is_removable(cursor) and not self.is_header(cursor, parent):
            text = self.text(cursor)
            number = self.note("statement", span(cursor)[0], f"{text} => nothing")
            self.edits.wrap(*span(cursor), f"(Mutants::On({number}) ? static_cast<void>(0) : static_cast<void>(", "))")

    def is_removable(self, cursor):
        inner = unwrapped(cursor)
        if inner.kind == Kind.BINARY_OPERATOR:
            found = self.source.operator(inner)
            return found is not None and found[2] == "="
        if inner.kind == Kind.UNARY_OPERATOR:
            return "++" in self.text(inner) or "--" in self.text(inner)
        return inner.kind in (Kind.CALL_EXPR, Kind.COMPOUND_ASSIGNMENT_OPERATOR)

    def is_header(self, cursor, parent):
        """True for what stands in the parentheses of a loop or a label."""
        last = list(parent.get_children())[-1]
        if parent.kind in (Kind.FOR_STMT, Kind.CXX_FOR_RANGE_STMT, Kind.CASE_STMT, Kind.DO_STMT):
            return cursor != last or parent.kind == Kind.DO_STMT
        return False

    def is_condition(self, cursor, parent):
        children = list(parent.get_children())
        if parent.kind in (Kind.IF_STMT, Kind.WHILE_STMT):
            return cursor == children[0]
        if parent.kind == Kind.DO_STMT:
            return cursor == children[-1]
        if parent.kind == Kind.FOR_STMT and cursor != children[-1]:
            head = self.source.slice(span(parent)[0], span(cursor)[0])
            rest = self.source.slice(span(cursor)[1], span(children[-1])[0])
            return head.count(";") == 1 and rest.lstrip().startswith(";")
        return False

    def condition(self, cursor):
        inner = unwrapped(cursor)
        if not cursor.kind.is_expression() or inner.kind == Kind.CXX_BOOL_LITERAL_EXPR:
            return
        if inner.kind == Kind.BINARY_OPERATOR and (self.source.operator(inner) or ("",) * 3)[2] in DECIDED:
            return
        if not (inner.kind == Kind.UNARY_OPERATOR and self.text(inner)[0] == "!"):
            text = self.text(cursor)
            self.place("condition", *span(cursor), [(f"!({text})", f"{text} => !({text})")],)

    def conditional_operator(self, cursor, _parent, _mask):
        self.condition(list(cursor.get_children())[0])

    def return_stmt(self, cursor, _parent, _mask):
        children = list(cursor.get_children())
        if not children:
            self.skipped(cursor, "return")
            return
        inner = unwrapped(children[0])
        text, kind = self.text(children[0]), children[0].type.get_canonical()
        own = inner.kind in (Kind.CALL_EXPR, Kind.DECL_REF_EXPR, Kind.MEMBER_REF_EXPR, Kind.ARRAY_SUBSCRIPT_EXPR,
                             Kind.CXX_STATIC_CAST_EXPR, Kind.UNARY_OPERATOR)
        if not own or is_constant(inner):
            return
        if kind.kind == TypeKind.BOOL and not text.startswith("!"):
            self.place("return", *span(children[0]), [(f"!({text})", f"return {text} => !({text})")])
        elif kind.kind == TypeKind.POINTER:
            self.place("return", *span(children[0]), [("nullptr", f"return {text} => nullptr")])
        elif kind.kind in INTEGERS and kind.kind != TypeKind.BOOL:
            other = f"static_cast<{kind.spelling}>(({text}) == 0)"
            self.place("return", *span(children[0]), [(other, f"return {text} => {other}")])

    def skipped(self, cursor, operator):
        """A jump that is left out."""
        number = self.note(operator, span(cursor)[0], f"{self.text(cursor)} => nothing")
        self.edits.insert(span(cursor)[0], f"if (Mutants::On({number})) {{}} else ")

    def break_stmt(self, cursor, _parent, _mask):
        self.skipped(cursor, "statement")

    continue_stmt = break_stmt

    def switch_stmt(self, cursor, _parent, _mask):
        value = list(cursor.get_children())[0]
        for label in self.labels(cursor):
            text = self.text(label)
            number = self.note("label", span(label)[0], f"case {text} => case {text} + 1")
            self.edits.wrap(*span(value), f"Mutants::Relabelled({number}, ", f", {text}, {text} + 1)")

    def labels(self, switch):
        for cursor in switch.walk_preorder():
            if cursor.kind == Kind.CASE_STMT:
                yield list(cursor.get_children())[0]

    def case_stmt(self, cursor, _parent, _mask):
        """The label belongs to switch_stmt."""
        body = list(cursor.get_children())[-1]
        self.visit(body, cursor)

    # Variables

    def var_decl(self, cursor, _parent, _mask):
        words = [token.spelling for token in cursor.get_tokens()]
        array = cursor.type.get_canonical().kind in (TypeKind.CONSTANTARRAY, TypeKind.INCOMPLETEARRAY)
        fixed = "constexpr" in words or "static" in words
        if fixed and not (array and self.fill_at_each_call(cursor)):
            return  # made by the compiler
        for child in self.initializers(cursor):
            self.expect(child, cursor.type)
            self.visit(child, cursor)

    def initializers(self, cursor):
        """The children that are values, not the size of an array."""
        for child in cursor.get_children():
            between = self.source.slice(cursor.location.offset, span(child)[0])
            if child.kind.is_expression() and re.search(r"[={(]", between):
                yield child

    def expect(self, cursor, kind):
        """Tells which literals of an initializer fill an array."""
        kind, cursor = kind.get_canonical(), unwrapped(cursor)
        array = kind.kind in (TypeKind.CONSTANTARRAY, TypeKind.INCOMPLETEARRAY)
        if cursor.kind == Kind.STRING_LITERAL and array:
            self.spelled.add(span(cursor))
        elif cursor.kind == Kind.INIT_LIST_EXPR:
            values = list(cursor.get_children())
            fields = [field.type for field in kind.get_fields()] if kind.kind == TypeKind.RECORD else []
            for value, field in zip(values, [kind.element_type] * len(values) if array else fields):
                self.expect(value, field)

    def fill_at_each_call(self, cursor):
        """An array of constants becomes one that is filled at each call."""
        for token in cursor.get_tokens():
            start, end = token.extent.start.offset, token.extent.end.offset
            if token.spelling in ("static", "constexpr"):
                self.edits.replace(start, end, "" if token.spelling == "static" else "const")
        return True


def number_of(text):
    """The value of a literal; None for a macro."""
    digits = re.sub(r"[uUlL]+$|'", "", text)
    if not digits[:1].isdigit():
        return None
    return int(digits, 8 if re.match(r"0[0-7]+$", digits) else 0)


def quote(letter):
    return letter.replace("'", "\\'") if letter != "\\'" else letter


def loosen_header(text, names):
    """A header that declares such tables."""
    for name in names:
        text = re.sub(rf"extern const (\w+ {name}\b)", r"extern \1", text)
        text = re.sub(rf"extern const char \*const {name}\b", f"extern const char *{name}", text)
    return text


def tell_apart(mutants):
    """The same change at two places of a line is the second one, and so on."""
    seen = collections.Counter()
    for mutant in mutants:
        key = (mutant.file, mutant.function, mutant.text, mutant.change)
        seen[key] += 1
        if seen[key] > 1:
            mutant.change += f" (the {seen[key]}.)"


def make_all(paths):
    """The mutants of all these sources and headers, the rewritten texts, and the tables that each entry names."""
    mutants, texts, entries, loosened, first = [], {}, {}, [], 1
    for path in paths:
        maker = Maker(path, first)
        text = maker.make()
        mutants += maker.mutants
        entries.update(maker.entries)
        loosened += maker.loosened
        first = maker.next
        texts[path] = text
    tell_apart(mutants)
    for path in paths:
        if path.endswith(".h"):
            texts[path] = loosen_header(texts[path].decode(), loosened).encode()
    return mutants, texts, entries
