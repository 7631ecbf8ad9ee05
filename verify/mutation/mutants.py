"""Finds every place in a source where a small change makes a mutant."""
import collections
import dataclasses
import re
import subprocess

from clang import cindex
from clang.cindex import CursorKind as Kind

COMPILER = "clang++-19"

SWAPS = {
    "<": ("comparison", ("<=", ">=")),
    "<=": ("comparison", ("<", ">")),
    ">": ("comparison", (">=", "<=")),
    ">=": ("comparison", (">", "<")),
    "==": ("comparison", ("!=",)),
    "!=": ("comparison", ("==",)),
    "+": ("arithmetic", ("-",)),
    "-": ("arithmetic", ("+",)),
    "*": ("arithmetic", ("/",)),
    "/": ("arithmetic", ("*",)),
    "%": ("arithmetic", ("*",)),
    "+=": ("arithmetic", ("-=",)),
    "-=": ("arithmetic", ("+=",)),
    "++": ("arithmetic", ("--",)),
    "--": ("arithmetic", ("++",)),
    "&&": ("logic", ("||",)),
    "||": ("logic", ("&&",)),
}
COMPARISONS = {operator for operator, (kind, _) in SWAPS.items() if kind == "comparison"}
# Another operator would give the negated mutant.
NEGATED_BY_SWAP = COMPARISONS | {"!"}

FUNCTIONS = (Kind.FUNCTION_DECL, Kind.CXX_METHOD, Kind.CONSTRUCTOR, Kind.DESTRUCTOR, Kind.FUNCTION_TEMPLATE)
STATEMENT_LISTS = (Kind.COMPOUND_STMT, Kind.CASE_STMT, Kind.DEFAULT_STMT)
LONGEST_SET = 4  # quotes included
LOCK = re.compile(r"Guard|_lock\b|lock_guard|Scope\b")
INTEGER = re.compile(r"(0[xX][0-9a-fA-F]+|\d+)([uUlL]*)$")


@dataclasses.dataclass(frozen=True)
class Mutant:
    """One change of one file. Its name contains no line number, so it survives when lines move."""

    file: str  # from the project's root
    kind: str
    function: str  # around the place, "" outside of functions
    text: str  # the source lines of the place
    change: str  # the old and the new text
    number: int  # among those with the same name, from 1 on
    line: int
    begin: int
    end: int
    new: str

    @property
    def name(self):
        return " | ".join((self.file, self.function, self.text, self.change))

    @property
    def key(self):
        return "%s | %d" % (self.name, self.number)


def flatten(text):
    return " ".join(text.split())


class Finder:
    """Walks the syntax tree of one file."""

    def __init__(self, root, file):
        self.file = file
        self.path = str(root / file)
        with open(self.path, encoding="ascii") as source:
            self.source = source.read()
        resources = subprocess.run(
            [COMPILER, "-print-resource-dir"], check=True, capture_output=True, text=True).stdout.strip()
        arguments = ["-xc++", "-std=c++17", "-I" + str(root), "-resource-dir", resources]
        self.unit = cindex.Index.create().parse(self.path, args=arguments)
        errors = [str(error) for error in self.unit.diagnostics if error.severity >= cindex.Diagnostic.Error]
        if errors:
            raise RuntimeError("%s: %s" % (file, errors[0]))
        self.used = set()
        self.changes = {}  # (begin, end, new) -> (kind, function, change)

    def find(self):
        own = self.children(self.unit.cursor)
        for cursor in (inner for outer in own for inner in outer.walk_preorder()):
            if cursor.kind == Kind.DECL_REF_EXPR and cursor.referenced is not None:
                self.used.add(cursor.referenced.hash)
        for cursor in own:
            self.visit(cursor, "")
        numbers = collections.Counter()
        mutants = []
        for (begin, end, new), (kind, function, change) in sorted(self.changes.items()):
            name = (function, self.lines_around(begin, end), change)
            numbers[name] += 1
            line = self.source.count("\n", 0, begin) + 1
            mutants.append(Mutant(self.file, kind, *name, numbers[name], line, begin, end, new))
        return mutants

    def children(self, cursor):
        found = [child for child in cursor.get_children()
                 if cindex.conf.lib.clang_Location_isFromMainFile(child.location)]
        return sorted(found, key=lambda child: child.extent.start.offset)

    def lines_around(self, begin, end):
        first = self.source.rfind("\n", 0, begin) + 1
        last = self.source.find("\n", max(begin, end - 1))
        return flatten(self.source[first:last])

    def text(self, cursor):
        return self.source[cursor.extent.start.offset:cursor.extent.end.offset]

    def add(self, kind, function, begin, end, new, change):
        self.changes.setdefault((begin, end, new), (kind, function, change))

    def replace(self, kind, function, begin, end, new):
        change = "%s becomes %s" % (flatten(self.source[begin:end]), new)
        self.add(kind, function, begin, end, new, change)

    def negate(self, function, cursor):
        if self.operator(cursor)[0] in NEGATED_BY_SWAP:
            return
        text = self.text(cursor)
        begin, end = cursor.extent.start.offset, cursor.extent.end.offset
        self.add("condition", function, begin, end, "!(%s)" % text, "negated: " + flatten(text))

    def drop(self, kind, function, cursor):
        begin, end = cursor.extent.start.offset, cursor.extent.end.offset
        self.add(kind, function, begin, end, "", "dropped: " + flatten(self.text(cursor)))

    def operator(self, cursor):
        """A cursor's operator and its position; ("", 0) if the operator is unknown."""
        while cursor.kind in (Kind.UNEXPOSED_EXPR, Kind.PAREN_EXPR) and len(self.children(cursor)) == 1:
            cursor = self.children(cursor)[0]
        children = self.children(cursor)
        text = self.text(cursor)
        if cursor.kind == Kind.UNARY_OPERATOR:
            for operator in ("++", "--", "!"):
                if text.startswith(operator):
                    return operator, cursor.extent.start.offset
                if text.endswith(operator):
                    return operator, cursor.extent.end.offset - len(operator)
        overloaded = cursor.kind == Kind.CALL_EXPR and cursor.spelling.startswith("operator")
        binary = cursor.kind in (Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR)
        if (overloaded or binary) and len(children) >= 2:
            begin = children[0].extent.end.offset
            between = self.source[begin:children[-1].extent.start.offset]
            if between.strip() in SWAPS:
                return between.strip(), begin + len(between) - len(between.lstrip())
        return "", 0

    def visit(self, cursor, function):
        if cursor.kind in FUNCTIONS:
            owner = cursor.semantic_parent
            within = owner.spelling + "::" if owner.kind in (Kind.CLASS_DECL, Kind.CLASS_TEMPLATE) else ""
            function = within + cursor.spelling
        self.visit_operator(cursor, function)
        self.visit_literal(cursor, function)
        self.visit_conditions(cursor, function)
        if cursor.kind in STATEMENT_LISTS:
            self.visit_statements(cursor, function)
        for child in self.children(cursor):
            self.visit(child, function)

    def visit_operator(self, cursor, function):
        if cursor.kind in (Kind.UNEXPOSED_EXPR, Kind.PAREN_EXPR):
            return
        operator, begin = self.operator(cursor)
        if operator == "!":
            self.add("condition", function, begin, begin + 1, "", "negated: " + flatten(self.text(cursor)))
        elif operator:
            kind, others = SWAPS[operator]
            for other in others:
                self.replace(kind, function, begin, begin + len(operator), other)

    def visit_literal(self, cursor, function):
        begin, text = cursor.extent.start.offset, self.text(cursor)
        integer = INTEGER.match(text)
        if cursor.kind == Kind.INTEGER_LITERAL and integer:
            for step in (1, -1):
                new = "%d%s" % (int(integer[1], 0) + step, integer[2])
                self.replace("constant", function, begin, begin + len(text), new)
        elif cursor.kind == Kind.CXX_BOOL_LITERAL_EXPR and text in ("true", "false"):
            new = "false" if text == "true" else "true"
            self.replace("boolean", function, begin, begin + len(text), new)
        elif cursor.kind == Kind.STRING_LITERAL and text.startswith('"'):
            for token in cursor.get_tokens():
                if token.spelling.startswith('"'):
                    # A short text may be a set of characters; change them all.
                    rest = token.spelling[1:] if len(token.spelling) > LONGEST_SET else '"'
                    self.replace("text", function, token.extent.start.offset, token.extent.end.offset, '"~' + rest)
        elif cursor.kind == Kind.CHARACTER_LITERAL and text.startswith("'"):
            self.replace("text", function, begin, begin + len(text), "'~'" if text != "'~'" else "'!'")

    def visit_conditions(self, cursor, function):
        children = self.children(cursor)
        if cursor.kind in (Kind.IF_STMT, Kind.WHILE_STMT) and children:
            if children[0].kind in (Kind.VAR_DECL, Kind.DECL_STMT):
                self.negate_declared(cursor, function, children[0])
            else:
                self.negate(function, children[0])
        elif cursor.kind == Kind.CONDITIONAL_OPERATOR:
            self.negate(function, children[0])
        elif cursor.kind == Kind.FOR_STMT:
            self.negate_for(cursor, function, children)
        elif cursor.kind == Kind.BINARY_OPERATOR and self.operator(cursor)[0] in ("&&", "||"):
            for child in children:
                self.negate(function, child)

    def negate_declared(self, cursor, function, declaration):
        if cursor.kind != Kind.IF_STMT:
            return
        names = [child.spelling for child in declaration.walk_preorder() if child.kind == Kind.VAR_DECL]
        end = declaration.extent.end.offset
        self.add("condition", function, end, end, "; !(%s)" % names[0], "negated: " + names[0])

    def negate_for(self, cursor, function, children):
        depth, bounds = 0, []
        for token in cursor.get_tokens():
            depth += {"(": 1, ")": -1}.get(token.spelling, 0)
            if token.spelling == ";" and depth == 1:
                bounds.append(token.extent.start.offset)
        for child in children:
            if len(bounds) == 2 and bounds[0] < child.extent.start.offset < bounds[1]:
                self.negate(function, child)

    def visit_statements(self, cursor, function):
        children = self.children(cursor)
        if cursor.kind != Kind.COMPOUND_STMT:
            children = children[-1:]
        for child in children:
            if child.kind.is_expression():
                kind = "notification" if "notify_" in self.text(child) else "statement"
                self.drop(kind, function, child)
            elif child.kind == Kind.BREAK_STMT or child.kind == Kind.RETURN_STMT and self.text(child) == "return":
                self.drop("statement", function, child)
            elif child.kind == Kind.DECL_STMT:
                self.drop_unused(child, function)

    def drop_unused(self, statement, function):
        """A variable that no code names exists for its constructor and destructor."""
        variables = self.children(statement)
        if len(variables) == 1 and variables[0].kind == Kind.VAR_DECL and variables[0].hash not in self.used:
            kind = "lock" if LOCK.search(variables[0].type.spelling) else "statement"
            self.drop(kind, function, statement)


def find_mutants(root, file):
    return Finder(root, file).find()
