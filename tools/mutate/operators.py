"""The mistakes that are made: what can be changed at a node of the syntax tree.

A node is what syntax.py makes of the tree: its kind, where it starts and ends in the file, its
children, and for some kinds the type. Nothing here looks for places by the text of the sources; the
text is only asked how an operator or a literal is written.
"""

import re

from mutant import Change

RELATIONS = {"<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"],
             "==": ["!="], "!=": ["=="]}
LOGIC = {"&&": "||", "||": "&&"}
ARITHMETIC = {"+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "&": "|", "|": "&", "^": "&",
              "<<": ">>", ">>": "<<"}
ARITHMETIC |= {operator + "=": other + "=" for operator, other in ARITHMETIC.items()}
STEPS = {"++": "--", "--": "++"}
BINARY = {*RELATIONS, *LOGIC, *ARITHMETIC, "=", "<=>", ","}

INTEGERS = {"char", "signed char", "unsigned char", "wchar_t", "short", "unsigned short", "int",
            "unsigned int", "long", "unsigned long", "long long", "unsigned long long"}
SOURCE_FILE = re.compile(r'^(L?"(?:util|asn1|pkcs11|src|include)\\\\.*?)\w+(\.\w+")$')


class Place:
    """A node with the source it lies in."""

    def __init__(self, node, source):
        self.node = node
        self.source = source

    def text(self, node=None):
        node = node or self.node
        return self.source[node.start:node.end].decode()

    def between(self, first, second):
        return self.source[first.end:second.start].decode()

    def change(self, operator, text, start=None, end=None, shown=None):
        shown = shown or self.node
        return Change(operator, self.node.start if start is None else start,
                      self.node.end if end is None else end, text, shown.start, shown.end)


def without_comments(text):
    return re.sub(r"//[^\n]*|/\*.*?\*/", " ", text, flags=re.DOTALL)


def operands(place):
    """The operands of a binary expression and its operator, or nothing. Overloaded and built-in
    operators look alike."""
    node = place.node
    if not node.is_expression or len(node.children) < 2:
        return None
    left, right = node.children[0], node.children[-1]
    if left.start != node.start or right.end != node.end or left.end > right.start:
        return None
    operator = without_comments(place.between(left, right)).strip()
    return (left, operator, right) if operator in BINARY else None


def binary(place):
    found = operands(place)
    if not found:
        return
    left, operator, right = found
    gap = place.between(left, right)
    where = left.end + len(gap[:gap.rindex(operator)].encode())
    names = {**dict.fromkeys(RELATIONS, "relation"), **dict.fromkeys(LOGIC, "logic"),
             **dict.fromkeys(ARITHMETIC, "arithmetic")}
    others = RELATIONS.get(operator) or [{**LOGIC, **ARITHMETIC}.get(operator)]
    for other in filter(None, others):
        yield place.change(names[operator], other, where, where + len(operator))
    if operator in LOGIC:
        yield place.change("dropped condition", "", left.end, right.end)
        yield place.change("dropped condition", "", left.start, right.start)


def unary(place):
    if not place.node.is_expression or place.node.kind == "CXX_UNARY_EXPR":
        return
    children = place.node.children
    operand = next((child for child in children
                    if child.start == place.node.start or child.end == place.node.end), None)
    if not operand or operand.start == place.node.start and operand.end == place.node.end:
        return
    before = operand.end == place.node.end
    if before:
        start, end = place.node.start, operand.start
    else:
        start, end = operand.end, place.node.end
    operator = place.source[start:end].decode().strip()
    if operator in STEPS:
        yield place.change("arithmetic", STEPS[operator], start, end)
    elif operator == "!":
        yield place.change("negation", "", start, end)
    elif before and operator in ("-", "~") and operand.kind != "INTEGER_LITERAL":
        yield place.change("arithmetic", "", start, end)


def condition_of(place):
    """The condition of an if, a while or a ?:, unless it declares a variable."""
    node, children = place.node, place.node.children
    if node.kind == "CONDITIONAL_OPERATOR" and len(children) == 3:
        return children[0]
    if node.kind == "WHILE_STMT" and len(children) == 2:
        return children[0]
    if node.kind == "DO_STMT" and len(children) == 2:
        return children[1]
    if node.kind == "IF_STMT" and len(children) >= 2:
        has_else = len(children) >= 3 and "else" in without_comments(
            place.between(children[-2], children[-1]))
        return children[-3 if has_else else -2]
    return None


def declares(node, condition):
    """Whether the condition is but the name of a variable that another child declares."""
    return any(child is not condition and child.start <= condition.start
               and condition.end <= child.end for child in node.children)


def conditions(place):
    condition = condition_of(place)
    if not condition or not condition.is_expression or declares(place.node, condition):
        return
    text = place.text(condition)
    yield place.change("negated condition", f"!({text})", condition.start, condition.end,
                       shown=condition)
    if place.node.kind == "IF_STMT" and not re.match(r"if\s+constexpr", place.text()):
        yield place.change("dropped condition", f"false && ({text})", condition.start,
                           condition.end, shown=condition)


def is_body(parent, child):
    """Whether a child of a statement is a statement itself, not its condition."""
    if parent.kind == "COMPOUND_STMT":
        return True
    if parent.kind in ("WHILE_STMT", "FOR_STMT", "CXX_FOR_RANGE_STMT", "DEFAULT_STMT", "CASE_STMT"):
        return child is parent.children[-1]
    if parent.kind == "IF_STMT":
        return len(parent.children) > 1 and child is not parent.children[0] and (
            child is parent.children[-1] or child is parent.children[-2])
    return False


def statements(place):
    """Statements that can be dropped. The semicolon behind them stays."""
    for child in place.node.children:
        if not is_body(place.node, child):
            continue
        rest = place.source[child.end:child.end + 200].decode(errors="replace")
        if not without_comments(rest).lstrip().startswith(";"):
            continue
        text = place.text(child)
        if text.startswith("throw"):
            operator = "dropped throw"
        elif child.kind in ("BREAK_STMT", "CONTINUE_STMT") or text == "return":
            operator = "dropped jump"
        elif child.is_expression:
            operator = "dropped call" if text.endswith(")") else "dropped statement"
        else:
            continue
        yield place.change(operator, "", child.start, child.end, shown=child)


def swapped_arguments(place):
    node = place.node
    if node.kind == "INIT_LIST_EXPR":
        arguments = node.children
        # A table's rows and numbers are changed one by one.
        if len(arguments) > 4 or all(argument.kind == "INIT_LIST_EXPR" or argument.type in INTEGERS
                                     for argument in arguments):
            return
    else:
        found = operands(place)
        # The order matters to few overloaded operators.
        if found and found[1] not in ("-", "<=>", "<<"):
            return
        arguments = node.arguments
    for index, first in enumerate(arguments):
        for second in arguments[index + 1:]:
            a, b = place.text(first), place.text(second)
            if not first.type or first.type != second.type or first.end > second.start or \
                    not a or not b or a == b:
                continue
            text = b + place.between(first, second) + a
            yield place.change("swapped arguments", text, first.start, second.end)


def constants(place):
    node, text = place.node, place.text()
    if node.kind == "INTEGER_LITERAL":
        yield place.change("table" if node.in_table else "constant", f"({text} + 1)")
        if not re.fullmatch(r"0[xX]?0*[uUlL]*", text) and not node.in_table:
            yield place.change("constant", f"({text} - 1)")
    elif node.kind == "CHARACTER_LITERAL":
        yield place.change("constant", f"({text} + 1)")
    elif node.kind == "CXX_BOOL_LITERAL_EXPR" and text in ("true", "false"):
        yield place.change("constant", "false" if text == "true" else "true")


def changed_text(literal):
    """Another text of the same length: the first letter becomes the next one."""
    start = literal.index('"') + 1
    letters = (match.start() for match in re.finditer(r"\\.|.", literal[start:-1])
               if re.fullmatch(r"[A-Za-z0-9]", match.group()))
    position = next(letters, None)
    if position is None:
        return re.sub(r'"(?:\\?.)?', '"~', literal, count=1)
    position += start
    letter = literal[position]
    other = {"z": "a", "Z": "A", "9": "0"}.get(letter) or chr(ord(letter) + 1)
    return literal[:position] + other + literal[position + 1:]


def texts(place):
    if place.node.kind != "STRING_LITERAL":
        return
    # Of adjacent literals the first.
    first = re.match(r'(?:L|u8|u|U)?"(?:[^"\\]|\\.)*"', place.text())
    if not first:
        return
    literal = first.group()
    end = place.node.start + len(literal.encode())
    if SOURCE_FILE.match(literal):
        other = SOURCE_FILE.sub(r"\g<1>other\g<2>", literal)
        yield place.change("source file", other, end=end)
    elif literal.endswith('""'):
        yield place.change("text", literal[:-1] + '~"', end=end)
    else:
        yield place.change("text", changed_text(literal), end=end)


def bodies(place):
    """Functions that do nothing."""
    node = place.node
    body = node.children[-1] if node.children else None
    if node.result != "void" or not body or body.kind != "COMPOUND_STMT" or len(body.children) < 2:
        return
    yield place.change("early return", "{ return;", body.start, body.start + 1,
                       shown=Shown(body.start, body.start + 1))


class Shown:
    def __init__(self, start, end):
        self.start = start
        self.end = end


def return_values(place):
    node = place.node
    if node.kind != "RETURN_STMT" or len(node.children) != 1 or not node.function_result:
        return
    value, result = node.children[0], node.function_result
    text = place.text(value)
    if value.kind.endswith("_LITERAL") or value.kind == "CXX_BOOL_LITERAL_EXPR" or text == "{}":
        return
    found = operands(Place(value, place.source))
    if result == "bool":
        # Comparisons are changed as such.
        other = None if found and found[1] in RELATIONS else f"!({text})"
    elif result in INTEGERS:
        other = f"({text}) + 1"
    elif result.endswith("*"):
        other = "nullptr"
    elif result.endswith("&") or text in ("nullptr", "std::nullopt"):
        other = None
    else:
        other = "{}"
    if other and other != text:
        yield place.change("return value", other, value.start, value.end)


OPERATORS = (binary, unary, conditions, statements, swapped_arguments, constants, texts, bodies,
             return_values)


def changes_at(node, source):
    place = Place(node, source)
    for operator in OPERATORS:
        yield from operator(place)
