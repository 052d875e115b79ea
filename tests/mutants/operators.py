"""The changes that scripts/mutate makes to a source: OPERATORS is the table of them.

An operator is a generator. It is called once for every site (a function, the initialiser of a variable or of a member,
a macro's definition) and yields changes: a span of the text and what stands there instead.
"""
from collections import namedtuple

from clang.cindex import CursorKind, TokenKind, TypeKind

from syntax import STATEMENT_PARENTS, Span, bare, body_of, plain_type, qualified_name, walk


class Mutant(namedtuple("Mutant", "source function operator line span original replacement")):
    """A source with one span of its text replaced."""

    def text(self):
        """The whole source; what follows keeps its line number."""
        lost = self.original.count("\n") - self.replacement.count("\n") if "#line" not in self.replacement else 0
        changed = (self.replacement + "\n" * max(lost, 0)).encode()
        return self.source.text[:self.span.start] + changed + self.source.text[self.span.end:]


COMPARISONS = ("==", "!=", "<", "<=", ">", ">=")
EXCHANGED_OPERATORS = {"+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "&": "|", "|": "&", "<<": ">>", ">>": "<<",
                       "&&": "||", "||": "&&", "+=": "-=", "-=": "+=", "|=": "&=", "&=": "|=", "^": "&"}
EXCHANGED_NAMES = {"min": "max", "max": "min", "append": "prepend", "first": "last", "removeFirst": "removeLast",
                   "lock": "unlock", "unlock": "lock", "acquire": "release", "release": "acquire", "find": "rfind",
                   "rfind": "find", "begin": "end", "end": "begin", "htons": "htonl", "htonl": "htons",
                   "ntohs": "ntohl", "ntohl": "ntohs", "send": "recv", "front": "back", "back": "front",
                   "push_back": "push_front", "lower_bound": "upper_bound"}
LOG_LEVELS = ({"DBG_ERROR", "DBG_INFO", "DBG_TRACE"},
              {"LOG4CPLUS_TRACE", "LOG4CPLUS_DEBUG", "LOG4CPLUS_INFO", "LOG4CPLUS_WARN", "LOG4CPLUS_ERROR",
               "LOG4CPLUS_FATAL"},
              {"TRACE_ENTER", "TRACE_LEAVE"})
TOKENS_OF_MACROS = {"std::dec": ["std::hex", '""'], "std::hex": ["std::dec", '""'], "std::endl": [r'"\n"', '""'],
                    "__FILE__": ['""'], "__LINE__": ["(__LINE__ + 1)"], "__PRETTY_FUNCTION__": ["__func__"],
                    "g_logger": []}
CALLS = {CursorKind.CALL_EXPR, CursorKind.CXX_NEW_EXPR}
VARIABLES = {CursorKind.VAR_DECL, CursorKind.PARM_DECL, CursorKind.FIELD_DECL}
INTEGERS = {TypeKind.SHORT, TypeKind.USHORT, TypeKind.INT, TypeKind.UINT, TypeKind.LONG, TypeKind.ULONG,
            TypeKind.LONGLONG, TypeKind.ULONGLONG, TypeKind.UCHAR, TypeKind.SCHAR, TypeKind.CHAR_S}


class Site:
    """What an operator is asked to change: the tree below one cursor of a source."""

    def __init__(self, source, cursor, name):
        self.source = source
        self.cursor = cursor
        self.name = name
        self.body = body_of(cursor)
        self.nodes = [(node, parents) for node, parents in walk(cursor) if source.here(node)]
        if cursor.kind in VARIABLES:
            self.nodes.insert(0, (cursor, []))
        self.expressions = [(node, parents) for node, parents in self.nodes
                            if source.macro_around(source.span(node)) is None and node.extent.end.offset > 0]
        self.locals = [(node, parents) for node, parents in self.nodes
                       if node.kind in (CursorKind.VAR_DECL, CursorKind.PARM_DECL) and node.spelling]

    def span(self, cursor):
        return self.source.span(cursor)

    def at(self, cursor):
        return self.source.at(self.span(cursor))

    def tokens(self, cursor):
        return self.source.tokens_in(self.span(cursor))

    def variables_at(self, offset):
        """The variables that may be named at a place: the function's, then the class's, then the namespace's."""
        found = []
        for variable, parents in self.locals:
            block = next((parent for parent in reversed(parents) if parent.kind != CursorKind.DECL_STMT), None)
            if variable.extent.end.offset <= offset and (block is None or self.span(block).end > offset):
                found.append(variable)
        owner = self.cursor.semantic_parent
        if owner is not None and owner.kind in (CursorKind.CLASS_DECL, CursorKind.STRUCT_DECL):
            found += [child for child in owner.get_children() if child.kind == CursorKind.FIELD_DECL]
        return found, self.source.namespace_variables

    def others_of_the_type(self, type_, offset, name):
        """Names of the other variables of a type; of the namespace's only those beside NAME, or the first one."""
        wanted = plain_type(type_)
        near, far = self.variables_at(offset)
        names = [variable.spelling for variable in near if plain_type(variable.type) == wanted]
        constants = [variable.spelling for variable in far
                     if plain_type(variable.type) == wanted and
                     (not self.source.here(variable) or variable.extent.end.offset <= offset)]
        if name in constants:
            index = constants.index(name)
            names += constants[max(index - 1, 0):index + 2]
        else:
            names += constants[:1]
        return [other for other in dict.fromkeys(names) if other != name]


# Expressions.

def comparison(site):
    for operator, _ in binary_operators(site):
        if operator.text in COMPARISONS:
            for other in COMPARISONS:
                if other != operator.text:
                    yield Span(operator.start, operator.end), other


def arithmetic(site):
    for operator, _ in binary_operators(site):
        if operator.text in EXCHANGED_OPERATORS:
            yield Span(operator.start, operator.end), EXCHANGED_OPERATORS[operator.text]
        if operator.text in ("+=", "-=", "|=", "&="):
            yield Span(operator.start, operator.end), "="
    for node, _ in site.expressions:
        if node.kind != CursorKind.UNARY_OPERATOR:
            continue
        tokens = site.tokens(node)
        for token in (tokens[0], tokens[-1]):
            if token.text in ("++", "--"):
                yield Span(token.start, token.end), "--" if token.text == "++" else "++"
            elif token.text in ("!", "-", "~"):
                yield Span(token.start, token.end), " "


def binary_operators(site):
    """The token of every operator between two operands, with its node."""
    for node, _ in site.expressions:
        children = list(node.get_children())
        if node.kind == CursorKind.CALL_EXPR and node.spelling.startswith("operator") and len(children) == 3:
            left, right = children[0], children[2]
        elif node.kind in (CursorKind.BINARY_OPERATOR, CursorKind.COMPOUND_ASSIGNMENT_OPERATOR):
            left, right = children
        else:
            continue
        between = site.source.tokens_in(Span(site.span(left).end, site.span(right).start))
        operators = [token for token in between if token.text not in ("(", ")")]
        if len(operators) == 1:
            yield operators[0], node


def condition(site):
    for node, _ in site.expressions:
        for part in conditions_of(site, node):
            yield site.span(part), "true"
            yield site.span(part), "false"
            yield site.span(part), "!(%s)" % site.at(part)
        if node.kind == CursorKind.CASE_STMT:
            label = list(node.get_children())[0]
            colon = next(token for token in site.source.tokens if token.start >= site.span(label).end)
            yield Span(site.span(node).start, colon.end), " "
        if node.kind == CursorKind.CONDITIONAL_OPERATOR:
            _, yes, no = node.get_children()
            yield Span(site.span(yes).start, site.span(no).end), "%s : %s" % (site.at(no), site.at(yes))


def conditions_of(site, node):
    children = list(node.get_children())
    if node.kind in (CursorKind.IF_STMT, CursorKind.WHILE_STMT, CursorKind.CONDITIONAL_OPERATOR):
        first = children[0]
        if first.kind == CursorKind.DECL_STMT or first.kind == CursorKind.VAR_DECL:
            first = children[1] if len(children) > 2 else None
        if first is not None:
            yield first
    elif node.kind == CursorKind.DO_STMT:
        yield children[1]
    elif node.kind == CursorKind.FOR_STMT and len(children) == 4:
        yield children[1]
    elif node.kind == CursorKind.BINARY_OPERATOR:
        operator = [token for token in site.source.tokens_in(
            Span(site.span(children[0]).end, site.span(children[1]).start)) if token.text in ("&&", "||")]
        if operator:
            yield from children


def constant(site):
    for node, _ in site.expressions:
        text = site.at(node)
        if node.kind in (CursorKind.INTEGER_LITERAL, CursorKind.CXX_UNARY_EXPR):
            for change in ("+ 1", "- 1"):
                yield site.span(node), changed_number(text, change)
        elif node.kind == CursorKind.CXX_BOOL_LITERAL_EXPR:
            yield site.span(node), "false" if text == "true" else "true"
        elif node.kind == CursorKind.STRING_LITERAL and text.startswith('"'):
            for changed in changed_texts(text):
                yield site.span(node), changed
        elif node.kind == CursorKind.DECL_REF_EXPR and node.referenced is not None and \
                node.referenced.kind == CursorKind.ENUM_CONSTANT_DECL:
            for other in enumerators(node.referenced.semantic_parent):
                if other != node.referenced.spelling:
                    scope = text[:len(text) - len(node.referenced.spelling)]
                    yield site.span(node), scope + other


def changed_number(text, change):
    try:
        value = int(text.rstrip("uUlL"), 0)
    except ValueError:
        return "(%s %s)" % (text, change)
    value += 1 if change == "+ 1" else -1
    return "(-1)" if value < 0 else str(value) + text[len(text.rstrip("uUlL")):]


def changed_texts(text):
    inner = text[1:-1]
    yield '"%sx"' % inner
    yield '"x%s"' % inner
    if inner:
        yield '"%s"' % inner[:-1] if not inner.endswith("\\") and inner[-2:-1] != "\\" else '""'


def enumerators(declaration):
    return [child.spelling for child in declaration.get_children()
            if child.kind == CursorKind.ENUM_CONSTANT_DECL][:8]


def variable(site):
    for node, parents in site.expressions:
        if node.kind not in (CursorKind.DECL_REF_EXPR, CursorKind.MEMBER_REF_EXPR) or node.referenced is None:
            continue
        if node.referenced.kind not in VARIABLES:
            continue
        tokens = site.tokens(node)
        if len(tokens) == 1:
            others = site.others_of_the_type(node.type, site.span(node).start, tokens[0].text)
        elif node.kind == CursorKind.MEMBER_REF_EXPR and tokens[-2].text in (".", "->"):
            fields = [field for field in node.referenced.semantic_parent.get_children()
                      if field.kind == CursorKind.FIELD_DECL]
            others = [field.spelling for field in fields
                      if field.spelling != tokens[-1].text and plain_type(field.type) == plain_type(node.type)]
        else:
            continue
        for other in others:
            yield Span(tokens[-1].start, tokens[-1].end), other


def argument(site):
    for node, _ in site.expressions:
        if node.kind not in CALLS or node.spelling.startswith("operator"):
            continue
        arguments = [child for child in node.get_arguments() if child is not None and child.extent.end.offset > 0]
        arguments = [child for child in arguments if site.span(child).end > site.span(child).start and
                     site.source.macro_around(site.span(child)) is None and site.source.here(child)]
        for child in arguments:
            yield from other_values(site, child)
        for first, second in zip(arguments, arguments[1:]):
            if plain_type(bare(first).type) == plain_type(bare(second).type):
                span = Span(site.span(first).start, site.span(second).end)
                yield span, "%s, %s" % (site.at(second), site.at(first))


def initialiser(site):
    for node, parents in site.expressions:
        if node.kind in (CursorKind.VAR_DECL, CursorKind.FIELD_DECL):
            value = initialiser_of(node)
            if value is None or not site.source.here(value):
                continue
            if value.kind != CursorKind.INIT_LIST_EXPR and site.span(value).start >= site.span(node).start:
                yield from other_values(site, value)
            yield from without_initialiser(site, node, value)
        elif node.kind == CursorKind.BINARY_OPERATOR:
            left, right = node.get_children()
            between = site.source.tokens_in(Span(site.span(left).end, site.span(right).start))
            if [token.text for token in between] == ["="]:
                yield from other_values(site, right)
    if site.cursor.kind == CursorKind.CONSTRUCTOR:
        children = list(site.cursor.get_children())
        for member, value in zip(children, children[1:]):
            if member.kind == CursorKind.MEMBER_REF and site.source.here(value):
                yield from other_values(site, value)


def initialiser_of(node):
    values = [child for child in node.get_children()
              if child.kind.is_expression() and child.extent.end.offset > child.extent.start.offset]
    name_end = node.location.offset + len(node.spelling)
    values = [value for value in values if value.extent.start.offset >= name_end]
    return values[-1] if values else None


def without_initialiser(site, node, value):
    text = site.source.text
    before = text[node.location.offset + len(node.spelling):site.span(value).start].decode()
    if before.strip() in ("=", ""):
        end = site.span(value).end
        if before.strip() == "=" or site.at(value).startswith("{"):
            yield Span(node.location.offset + len(node.spelling), end), ""


def other_values(site, child):
    """What else could stand in the place of a value: its neighbours, the others of its type, nothing."""
    expression = bare(child)
    text = site.at(child)
    span = site.span(child)
    canonical = expression.type.get_canonical()
    if canonical.kind in (TypeKind.LVALUEREFERENCE, TypeKind.RVALUEREFERENCE):
        canonical = canonical.get_pointee().get_canonical()
    literal = expression.kind in (CursorKind.INTEGER_LITERAL, CursorKind.CXX_UNARY_EXPR)
    if canonical.kind == TypeKind.BOOL:
        yield span, "true"
        yield span, "false"
        yield span, "!(%s)" % text
    elif canonical.kind in INTEGERS:
        if not literal:
            yield span, "((%s) + 1)" % text
            yield span, "((%s) - 1)" % text
        if text != "0":
            yield span, "0"
        if text != "1":
            yield span, "1"
    elif canonical.kind == TypeKind.ENUM:
        for other in enumerators(canonical.get_declaration()):
            if not text.endswith(other):
                scope = text[:text.rfind("::") + 2] if "::" in text and "(" not in text else ""
                yield span, scope + other
    elif canonical.kind == TypeKind.POINTER and text != "nullptr":
        yield span, "nullptr"
    for other in site.others_of_the_type(expression.type, span.start, text):
        if not literal or other in {variable.spelling for variable in site.variables_at(span.start)[0]}:
            yield span, other


def call(site):
    """A call of an overridable operation that no override hears."""
    for node, _ in site.expressions:
        method = node.referenced if node.kind == CursorKind.CALL_EXPR else None
        if method is None or method.kind != CursorKind.CXX_METHOD or not method.is_virtual_method():
            continue
        tokens = site.tokens(node)
        name = next((token for token in tokens if token.text == method.spelling), None)
        if name is not None:
            yield Span(name.start, name.end), "%s::%s" % (method.semantic_parent.spelling, method.spelling)


def function(site):
    for token in site.tokens(site.cursor):
        if token.text in EXCHANGED_NAMES and token.kind == TokenKind.IDENTIFIER:
            following = next((other for other in site.source.tokens if other.start >= token.end), None)
            if following is not None and following.text == "(" and token.start != site.cursor.location.offset:
                yield Span(token.start, token.end), EXCHANGED_NAMES[token.text]


def cast(site):
    for node, _ in site.expressions:
        if node.kind in (CursorKind.CXX_STATIC_CAST_EXPR, CursorKind.CXX_REINTERPRET_CAST_EXPR,
                         CursorKind.CXX_CONST_CAST_EXPR):
            tokens = site.tokens(node)
            opening = next(token for token in tokens if token.text == "(")
            yield site.span(node), "(%s)" % site.source.at(Span(opening.end, tokens[-1].start))


# Statements.

def statements(site):
    """Every statement of a function, with its block: its span takes in the semicolon."""
    for node, parents in site.nodes:
        parent = parents[-1]
        if parent.kind not in STATEMENT_PARENTS or not is_statement(site, node, parent):
            continue
        macro = site.source.macros.get(site.span(node).start)
        inside = site.source.macro_around(site.span(node))
        if inside is not None and (macro is None or inside[0] != macro[0] or in_macro(site, parents)):
            continue
        if node.kind == CursorKind.COMPOUND_STMT and parent.kind != CursorKind.COMPOUND_STMT:
            continue
        yield node, parent, whole_statement(site, macro[0] if inside else site.span(node))


def in_macro(site, parents):
    return any(site.source.macro_around(site.span(parent)) for parent in parents[1:])


def is_statement(site, node, parent):
    if parent.kind == CursorKind.COMPOUND_STMT:
        return True
    children = list(parent.get_children())
    if parent.kind == CursorKind.IF_STMT:
        return node in children[1:]
    if parent.kind == CursorKind.DO_STMT:
        return node == children[0]
    return node == children[-1]


def whole_statement(site, span):
    end = span.end
    text = site.source.text
    if text[end - 1:end] not in (b";",):
        rest = text[end:]
        blank = len(rest) - len(rest.lstrip())
        if rest[blank:blank + 1] == b";":
            end += blank + 1
    return Span(span.start, end)


def statement(site):
    """A statement left out, but for the return that a function must end with."""
    last = list(site.body.get_children())[-1:] if site.body is not None else []
    returns = site.cursor.result_type.kind != TypeKind.VOID and site.cursor.kind in (
        CursorKind.FUNCTION_DECL, CursorKind.CXX_METHOD)
    for node, parent, span in statements(site):
        if not (returns and node in last and node.kind == CursorKind.RETURN_STMT):
            yield span, ";"
        if node.kind == CursorKind.IF_STMT and len(list(node.get_children())) == 3:
            _, yes, no = node.get_children()
            yield Span(site.span(yes).end, whole_statement(site, site.span(no)).end), \
                "" if site.at(yes).endswith("}") else ";"
        if node.kind == CursorKind.CXX_TRY_STMT:
            yield span, site.at(list(node.get_children())[0])


def exchange(site):
    """Two neighbouring statements exchanged; each keeps its line number."""
    found = list(statements(site))
    by_block = {}
    for node, block, span in found:
        if block.kind == CursorKind.COMPOUND_STMT:
            by_block.setdefault(block.hash, []).append(span)
    for spans in by_block.values():
        for first, second in zip(spans, spans[1:]):
            yield exchanged(site.source, first, second)


def exchanged(source, first, second):
    parts = []
    for span in (second, first):
        parts.append("\n#line %d\n%s" % (source.line_of(span.start), source.at(span)))
    after = "\n#line %d\n" % source.line_of(second.end)
    return Span(first.start, second.end), "".join(parts) + after


def repeat(site):
    """Something done twice."""
    for node, parent, span in statements(site):
        if node.kind in (CursorKind.DECL_STMT, CursorKind.RETURN_STMT, CursorKind.COMPOUND_STMT, CursorKind.IF_STMT,
                         CursorKind.FOR_STMT, CursorKind.WHILE_STMT, CursorKind.BREAK_STMT, CursorKind.NULL_STMT,
                         CursorKind.SWITCH_STMT, CursorKind.CASE_STMT, CursorKind.DEFAULT_STMT,
                         CursorKind.CXX_TRY_STMT):
            continue
        text = site.source.at(span)
        yield span, "{ %s %s }" % (text, text)
    for node, parents in site.expressions:
        if node.kind != CursorKind.CALL_EXPR or node.type.kind == TypeKind.VOID or not node.spelling:
            continue
        text = site.at(node)
        if node.spelling.startswith("operator") or not text.endswith(")") or bare_parent(parents) is None:
            continue
        yield site.span(node), "(%s, %s)" % (text, text)


def bare_parent(parents):
    """The closest parent that has a text of its own, when it takes the value of a call."""
    for parent in reversed(parents):
        if parent.kind in (CursorKind.VAR_DECL, CursorKind.RETURN_STMT, CursorKind.IF_STMT,
                           CursorKind.BINARY_OPERATOR, CursorKind.UNARY_OPERATOR, CursorKind.CONSTRUCTOR):
            return parent
        if parent.kind != CursorKind.UNEXPOSED_EXPR:
            return None
    return None


def guard(site):
    """An object that lets something go at the end of its scope, and never does."""
    for node, _ in site.expressions:
        if node.kind != CursorKind.VAR_DECL or node.semantic_parent.kind in (CursorKind.NAMESPACE,
                                                                            CursorKind.CLASS_DECL):
            continue
        declaration = node.type.get_canonical().get_declaration()
        if declaration.kind not in (CursorKind.CLASS_DECL, CursorKind.STRUCT_DECL) or node.type.is_pod():
            continue
        if node.storage_class.name == "STATIC":
            continue
        span = site.span(node)
        type_text = site.source.at(Span(span.start, node.location.offset)).strip()
        if not type_text or type_text.endswith("&"):  # none stands there for what a lambda captures
            continue
        value = site.source.at(Span(node.location.offset + len(node.spelling), span.end)).strip()
        if value.startswith("="):
            value = "(%s)" % value[1:].strip()
        made = "auto" if type_text.split()[-1] == "auto" else type_text
        yield span, "%s& %s = *new %s%s" % (type_text, node.spelling, made, value)


def returned(site):
    for node, _ in site.nodes:
        if node.kind != CursorKind.RETURN_STMT:
            continue
        children = list(node.get_children())
        if not children or site.source.macro_around(site.span(children[0])):
            continue
        value = children[0]
        text = site.at(value)
        type_ = site.cursor.result_type.get_canonical()
        for span, other in other_values(site, value):
            yield span, other
        if type_.kind == TypeKind.ENUM:
            for name in enumerators(type_.get_declaration()):
                if name != text:
                    yield site.span(value), name
        elif type_.kind in INTEGERS:
            for name in ("0", "1", "-1"):
                if name != text:
                    yield site.span(value), name


def reread(site):
    """A value read again where it is kept, and kept where it is read again."""
    if site.body is None:
        return
    for node, parents in site.locals:
        if node.kind == CursorKind.VAR_DECL and node.type.is_const_qualified():
            value = initialiser_of(node)
            if value is None or site.source.macro_around(site.span(value)) or "{" in site.at(value):
                continue
            block = parents[-2] if len(parents) > 1 else site.body
            for token in uses(site, node, Span(site.span(node).end, site.span(block).end)):
                yield Span(token.start, token.end), "(%s)" % site.at(value)
        elif node.kind == CursorKind.PARM_DECL and node.type.kind == TypeKind.LVALUEREFERENCE:
            pointee = node.type.get_pointee().get_canonical()
            if pointee.kind not in INTEGERS:
                continue
            opening = site.span(site.body).start + 1
            for token in list(uses(site, node, site.span(site.body)))[1:]:
                between = site.source.at(Span(opening, token.start))
                yield Span(opening, token.end), " const auto before = %s;%sbefore" % (node.spelling, between)


def uses(site, declaration, span):
    previous = ""
    for token in site.source.tokens_in(span):
        if token.text == declaration.spelling and previous not in (".", "->", "::"):
            yield token
        previous = token.text


# Log statements and assertions.

def log(site):
    for place, name in macros_in(site):
        levels = next((levels for levels in LOG_LEVELS if name in levels), None)
        if levels is None:
            continue
        for other in sorted(levels - {name}):
            yield Span(place.start, place.start + len(name)), other
        message = macro_arguments(site.source, place)[-1]
        for operand in operands(site.source, message):
            yield from other_operands(site, operand)


def macros_in(site):
    inside = site.span(site.cursor)
    for place, name in site.source.macros.values():
        if inside.start <= place.start < inside.end:
            yield place, name


def macro_arguments(source, place):
    """The spans of a macro's arguments."""
    tokens = source.tokens_in(place)[1:]
    depth, start, spans = 0, None, []
    for token in tokens:
        if token.text in ("(", "[", "{"):
            depth += 1
            if depth == 1:
                start = token.end
        elif token.text in (")", "]", "}"):
            depth -= 1
            if depth == 0:
                spans.append(Span(start, token.start))
        elif token.text == "," and depth == 1:
            spans.append(Span(start, token.start))
            start = token.end
    return spans


def operands(source, message):
    """The operands of a chain of insertions."""
    tokens = source.tokens_in(message)
    depth, current, found = 0, [], []
    for token in tokens:
        if token.text == "<<" and depth == 0:
            found.append(Span(current[0].start, current[-1].end))
            current = []
            continue
        depth += {"(": 1, ")": -1}.get(token.text, 0)
        current.append(token)
    if current:
        found.append(Span(current[0].start, current[-1].end))
    return found


def other_operands(site, operand):
    text = site.source.at(operand)
    if text.startswith('"'):
        for changed in changed_texts(text):
            yield operand, changed
        return
    if text in ("std::hex", "std::dec"):
        yield operand, "std::dec" if text == "std::hex" else "std::hex"
        yield operand, '""'
        return
    yield operand, '""'
    yield operand, "((%s) + 1)" % text
    if text.startswith("static_cast"):
        yield operand, "(%s)" % text[text.index("(") + 1:-1]
    for token in site.source.tokens_in(operand):
        near, far = site.variables_at(operand.start)
        declaration = next((variable for variable in near + far if variable.spelling == token.text), None)
        if declaration is not None:
            for other in site.others_of_the_type(declaration.type, operand.start, token.text):
                yield Span(token.start, token.end), other


def assertion(site):
    for place, name in macros_in(site):
        if name == "assert":
            asserted = macro_arguments(site.source, place)[0]
            text = site.source.at(asserted)
            yield asserted, "true"
            yield asserted, "!(%s)" % text
            yield asserted, "(%s) && true" % text


def macro(site):
    """The tokens of a macro's definition."""
    tokens = site.source.tokens_in(site.definition)[1:]
    for index, token in enumerate(tokens):
        span = Span(token.start, token.end)
        if token.text == "std" and index + 2 < len(tokens):
            span = Span(token.start, tokens[index + 2].end)
        text = site.source.at(span)
        if text.startswith('"'):
            for changed in changed_texts(text):
                yield span, changed
        elif text.isdigit():
            yield span, changed_number(text, "+ 1")
            yield span, changed_number(text, "- 1")
        elif text in COMPARISONS:
            for other in COMPARISONS:
                if other != text:
                    yield span, other
        for levels in LOG_LEVELS:
            if text in levels:
                for other in sorted(levels - {text}):
                    yield span, other
        for other in TOKENS_OF_MACROS.get(text, ()):
            yield span, other


def order(site):
    """Two neighbouring members of a class exchanged."""
    members = [child for child in site.cursor.get_children() if child.kind == CursorKind.FIELD_DECL]
    for first, second in zip(members, members[1:]):
        yield exchanged(site.source, whole_statement(site, site.span(first)), whole_statement(site, site.span(second)))


EXPRESSION_OPERATORS = (comparison, arithmetic, condition, constant, variable, argument, initialiser, call, function,
                        cast)
FUNCTION_OPERATORS = EXPRESSION_OPERATORS + (returned, statement, exchange, repeat, guard, reread, log, assertion)

# Name -> what it does, for the page and for --list.
OPERATORS = {
    "comparison": "a comparison made each of the other five",
    "arithmetic": "an arithmetic, bit or sign operator made its opposite, or left out",
    "condition": "a condition made true, false or its opposite; a case left out",
    "constant": "an integer plus and minus one, a text longer and shorter, an enumerator made each of the others",
    "variable": "a variable made another of its type in scope",
    "argument": "an argument made its neighbours, none, or another of its type; two arguments exchanged",
    "initialiser": "a variable or member initialised with another value, or not at all",
    "call": "an overridable operation called past its override",
    "function": "a function made its counterpart (min and max, lock and unlock)",
    "cast": "a cast left out",
    "return": "a returned value made each of the others of its type",
    "statement": "a statement left out",
    "exchange": "two neighbouring statements exchanged",
    "repeat": "a statement or a call made twice",
    "guard": "an object that is never destroyed, so that what it holds is never let go",
    "reread": "a kept value read again, a value read again kept",
    "log": "a log statement at another level, or with one operand changed",
    "assertion": "an assertion that always holds, that never holds, that has another text",
    "macro": "a token of a macro's definition changed",
    "order": "two neighbouring members of a class exchanged",
}


def mutants_of(source):
    """All mutants of a source, in the order of its lines, none twice."""
    found = {}
    for site, operators in sites(source):
        for operator in operators:
            for span, text in operator(site):
                original = source.at(span)
                if text == original:
                    continue
                name = {"returned": "return"}.get(operator.__name__, operator.__name__)
                key = (span, text)
                if key not in found:
                    found[key] = Mutant(source, site.name, name, source.line_of(span.start), span, original, text)
    return sorted(found.values(), key=lambda mutant: (mutant.span, mutant.replacement))


def sites(source):
    for cursor in source.functions:
        yield Site(source, cursor, qualified_name(cursor)), FUNCTION_OPERATORS
    for cursor in source.namespace_variables:
        if source.here(cursor):
            yield Site(source, cursor, cursor.spelling), EXPRESSION_OPERATORS
    for cursor in source.classes():
        yield Site(source, cursor, cursor.spelling), (order,)
        for child in cursor.get_children():
            if child.kind in (CursorKind.FIELD_DECL, CursorKind.VAR_DECL):
                yield Site(source, child, qualified_name(child)), EXPRESSION_OPERATORS
    for place, name in source.definitions:
        site = Site.__new__(Site)
        site.source, site.definition, site.name = source, place, name
        yield site, (macro,)
