"""One source file as text and as clang's syntax tree, addressed by byte offsets."""
from collections import namedtuple
from pathlib import Path

from clang import cindex
from clang.cindex import CursorKind, TokenKind

Span = namedtuple("Span", "start end")  # byte offsets, the end exclusive
Token = namedtuple("Token", "start end text kind")

Unit = namedtuple("Unit", "unit cursors")  # a translation unit, and what of it does not come from the system

cindex.conf.lib.clang_Location_isInSystemHeader.argtypes = [cindex.SourceLocation]

FUNCTION_KINDS = {CursorKind.FUNCTION_DECL, CursorKind.CXX_METHOD, CursorKind.CONSTRUCTOR, CursorKind.DESTRUCTOR}
STATEMENT_PARENTS = {CursorKind.COMPOUND_STMT, CursorKind.IF_STMT, CursorKind.FOR_STMT, CursorKind.WHILE_STMT,
                     CursorKind.DO_STMT, CursorKind.CASE_STMT, CursorKind.DEFAULT_STMT}


def parse(path, arguments):
    """The translation unit of a source, with its macros; an error in it ends the run."""
    options = cindex.TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD
    unit = cindex.Index.create().parse(str(path), args=arguments, options=options)
    errors = [str(diagnostic) for diagnostic in unit.diagnostics if diagnostic.severity >= cindex.Diagnostic.Error]
    if errors:
        raise RuntimeError("clang cannot read %s: %s" % (path, errors[0]))
    return Unit(unit, [cursor for cursor in unit.cursor.get_children() if not in_system_header(cursor)])


def in_system_header(cursor):
    return cindex.conf.lib.clang_Location_isInSystemHeader(cindex.conf.lib.clang_getCursorLocation(cursor))


class Source:
    """The part of a translation unit that stands in one file: text, tokens, macro uses, functions, variables."""

    def __init__(self, unit, path, name):
        self.unit = unit.unit
        self.cursors = unit.cursors
        self.path = str(path)
        self.name = name  # as it is written in reports
        self.text = Path(path).read_bytes()
        self.tokens = self._read_tokens()
        self.macros, self.definitions = self._read_macros()
        self.functions = list(self._functions_below(unit.cursors))
        self.namespace_variables = list(self._namespace_variables(unit.cursors))

    # Text.

    def at(self, span):
        return self.text[span.start:span.end].decode()

    def line_of(self, offset):
        return self.text.count(b"\n", 0, offset) + 1

    def tokens_in(self, span):
        return [token for token in self.tokens if token.start >= span.start and token.end <= span.end]

    def _read_tokens(self):
        whole = self.unit.get_extent(self.path, (0, len(self.text)))
        tokens = []
        for token in cindex.TokenGroup.get_tokens(self.unit, whole):
            if token.kind == TokenKind.COMMENT:
                continue
            tokens.append(Token(token.extent.start.offset, token.extent.end.offset, token.spelling, token.kind))
        return tokens

    # Macros.

    def _read_macros(self):
        """Spans of the macros used, by their start, with their names; and the definitions in this file."""
        used, defined = {}, []
        for cursor in self.cursors:
            if cursor.location.file is None or cursor.location.file.name != self.path:
                continue
            if cursor.kind == CursorKind.MACRO_INSTANTIATION:
                used[cursor.extent.start.offset] = (Span(cursor.extent.start.offset, cursor.extent.end.offset),
                                                    cursor.spelling)
            elif cursor.kind == CursorKind.MACRO_DEFINITION:
                defined.append((Span(cursor.extent.start.offset, cursor.extent.end.offset), cursor.spelling))
        return used, defined

    def macro_around(self, span):
        """The macro with arguments inside of which a span begins, if any."""
        for place, name in self.macros.values():
            if place.start <= span.start < place.end and place.end - place.start > len(name):
                return place, name
        return None

    # The tree.

    def here(self, cursor):
        return cursor.location.file is not None and cursor.location.file.name == self.path

    def span(self, cursor):
        return Span(cursor.extent.start.offset, cursor.extent.end.offset)

    def _functions_below(self, cursors):
        for child in cursors:
            if child.kind in FUNCTION_KINDS and child.is_definition() and self.here(child):
                yield child
            elif child.kind in (CursorKind.NAMESPACE, CursorKind.CLASS_DECL, CursorKind.STRUCT_DECL,
                                CursorKind.UNEXPOSED_DECL, CursorKind.LINKAGE_SPEC):
                yield from self._functions_below(child.get_children())

    def _namespace_variables(self, cursors):
        for child in cursors:
            if child.kind == CursorKind.NAMESPACE:
                yield from self._namespace_variables(child.get_children())
            elif child.kind == CursorKind.VAR_DECL:
                yield child

    def classes(self, cursors=None):
        for child in self.cursors if cursors is None else cursors:
            if child.kind in (CursorKind.CLASS_DECL, CursorKind.STRUCT_DECL) and child.is_definition():
                if self.here(child):
                    yield child
                yield from self.classes(child.get_children())
            elif child.kind == CursorKind.NAMESPACE:
                yield from self.classes(child.get_children())


def body_of(function):
    for child in function.get_children():
        if child.kind == CursorKind.COMPOUND_STMT:
            return child
    return None


def qualified_name(cursor):
    """The name with its class, as in Class::method."""
    parent = cursor.semantic_parent
    if parent is not None and parent.kind in (CursorKind.CLASS_DECL, CursorKind.STRUCT_DECL):
        return parent.spelling + "::" + cursor.spelling
    return cursor.spelling


def bare(cursor):
    """An expression without what the tree wraps around it: conversions and temporaries without a text of their own."""
    while cursor.kind == CursorKind.UNEXPOSED_EXPR:
        children = list(cursor.get_children())
        if len(children) != 1 or children[0].extent != cursor.extent:
            break
        cursor = children[0]
    return cursor


def plain_type(type_):
    """A type's name without const and reference: what decides whether one value may stand in another's place."""
    canonical = type_.get_canonical()
    if canonical.kind in (cindex.TypeKind.LVALUEREFERENCE, cindex.TypeKind.RVALUEREFERENCE):
        canonical = canonical.get_pointee().get_canonical()
    name = canonical.spelling
    return name[len("const "):] if name.startswith("const ") and "*" not in name else name.replace("*const", "*")


def walk(cursor):
    """Every cursor below this one, a parent before its children, with the chain of its parents."""
    def below(current, parents):
        for child in current.get_children():
            yield child, parents
            yield from below(child, parents + [child])
    yield from below(cursor, [cursor])
