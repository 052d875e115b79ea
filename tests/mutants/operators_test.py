#!/usr/bin/python3
"""The changes that are made to a few lines of C++, and what the reviewed list takes. Exit status 77: no libclang."""
import sys
import tempfile
import unittest
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parent))

try:
    from clang import cindex  # noqa: F401
except ImportError:
    sys.exit(77)

import batch  # noqa: E402
import syntax  # noqa: E402
from operators import OPERATORS, mutants_of  # noqa: E402
from reviewed import Reviewed, identities  # noqa: E402

PRELUDE = """
#define assert(condition) ((condition) ? void() : stop())
#define DBG_ERROR(message) say() << message
#define DBG_INFO(message) say() << message
void stop();
struct Stream { Stream& operator<<(const char*); Stream& operator<<(int); };
Stream& say();
enum Error { Success, ErrorI2C, ErrorInvalid };
struct Guard { Guard(); ~Guard(); };
int read(int file, int length);
void close(int file);
"""


class Changes(unittest.TestCase):
    def mutants(self, code):
        folder = Path(self.enterContext(tempfile.TemporaryDirectory()))
        path = folder / "sample.cpp"
        path.write_text(PRELUDE + code)
        return mutants_of(syntax.Source(syntax.parse(path, ["-std=c++17"]), path, "sample.cpp"))

    def changes(self, code, operator):
        """What is made of what in the code, by one operator."""
        return {(mutant.original, mutant.replacement.strip()) for mutant in self.mutants(code)
                if mutant.operator == operator and mutant.function in ("f", "T", "T::f")}

    def test_a_comparison_becomes_each_of_the_others(self):
        self.assertEqual({("<", other) for other in ("==", "!=", "<=", ">", ">=")},
                         self.changes("bool f(int a, int b) { return a < b; }", "comparison"))

    def test_a_condition_becomes_true_false_and_its_opposite(self):
        self.assertEqual({("a", "true"), ("a", "false"), ("a", "!(a)")},
                         self.changes("int f(bool a) { if (a) return 1; return 2; }", "condition"))

    def test_an_integer_becomes_its_neighbours(self):
        self.assertEqual({("7", "6"), ("7", "8")}, self.changes("int f() { return 7; }", "constant"))

    def test_a_returned_error_becomes_each_of_the_others(self):
        changes = self.changes("Error f() { return ErrorI2C; }", "return") | \
            self.changes("Error f() { return ErrorI2C; }", "constant")
        self.assertEqual({("ErrorI2C", "Success"), ("ErrorI2C", "ErrorInvalid")}, changes)

    def test_a_statement_is_left_out_but_for_the_last_return(self):
        self.assertEqual({("close(a);", ";")}, self.changes("int f(int a) { close(a); return a; }", "statement"))

    def test_neighbouring_statements_change_places_and_keep_their_lines(self):
        code = "void f(int a, int b) {\nclose(a);\nclose(b);\n}"
        mutant = next(mutant for mutant in self.mutants(code) if mutant.operator == "exchange")
        line = PRELUDE.count("\n") + 2
        self.assertEqual("#line %d\nclose(b);\n#line %d\nclose(a);\n#line %d" % (line + 1, line, line + 1),
                         mutant.replacement.strip())

    def test_an_argument_becomes_its_neighbours_and_the_others_of_its_type(self):
        changes = self.changes("int f(int a, int b) { return read(a, b); }", "argument")
        self.assertLessEqual({("a", "((a) + 1)"), ("a", "((a) - 1)"), ("a", "0"), ("a, b", "b, a")}, changes)
        self.assertIn(("a", "b"), self.changes("int f(int a, int b) { return read(a, b); }", "variable"))

    def test_a_log_line_changes_its_level_and_each_operand(self):
        changes = self.changes('void f(int a) { DBG_ERROR("read " << a); }', "log")
        self.assertLessEqual({("DBG_ERROR", "DBG_INFO"), ('"read "', '"read"'), ("a", '""'), ("a", "((a) + 1)")},
                             changes)

    def test_an_assertion_holds_always_never_and_with_another_text(self):
        self.assertEqual({("a > 0", "true"), ("a > 0", "!(a > 0)"), ("a > 0", "(a > 0) && true")},
                         self.changes("void f(int a) { assert(a > 0); }", "assertion"))

    def test_a_guard_never_lets_go(self):
        self.assertEqual({("const Guard guard", "const Guard& guard = *new const Guard")},
                         self.changes("void f() { const Guard guard; }", "guard"))

    def test_an_overridable_operation_is_called_past_its_override(self):
        code = "struct T { virtual int g(); int f() { return g(); } };"
        self.assertEqual({("g", "T::g")}, self.changes(code, "call"))

    def test_members_change_places(self):
        changes = self.changes("struct T { int a; int b; };", "order")
        self.assertEqual(1, len(changes))

    def test_a_parameter_that_is_read_again_is_kept(self):
        changes = self.changes("int f(int& a) { close(a); return a; }", "reread")
        self.assertEqual({"const auto before = a; close(a); return before"}, {text for _, text in changes})

    def test_no_change_is_made_twice_and_every_kind_is_in_the_table(self):
        mutants = self.mutants("int f(int a) { if (a != 1) return 0; close(a); return a + 1; }")
        self.assertEqual(len(mutants), len({(mutant.span, mutant.replacement) for mutant in mutants}))
        self.assertLessEqual({mutant.operator for mutant in mutants}, set(OPERATORS))

    def test_what_follows_a_mutant_keeps_its_line(self):
        for mutant in self.mutants("int f(int a) {\n  if (a)\n    return 1;\n  return 2;\n}\nint g();"):
            if "#line" not in mutant.replacement:
                self.assertEqual(mutant.source.text.count(b"\n"), mutant.text().count(b"\n"), mutant.original)

    def test_a_batch_holds_every_body_beside_the_first_one(self):
        mutants = [mutant for mutant in self.mutants("int f() {\n  return 7;\n}") if mutant.operator == "constant"]
        (group,) = batch.batches(mutants)
        text = batch.merged(group, False)
        for number, body in ((1, "return 6;"), (2, "return 8;")):
            self.assertRegex(text, r"if \(mutants_active == %d\)\n#line \d+ \n{\n  %s" % (number, body))
        self.assertIn("  return 7;", text)


class TheReviewedList(unittest.TestCase):
    def read(self, text):
        path = Path(self.enterContext(tempfile.TemporaryDirectory())) / "list.txt"
        path.write_text(text)
        return Reviewed(path)

    def test_gives_one_reason_to_the_entries_above_it(self):
        entries = self.read("# remark\nfirst\nsecond\n    a reason\n    of two lines\nthird\n    another\n").entries
        self.assertEqual({"first": "a reason of two lines", "second": "a reason of two lines", "third": "another"},
                         entries)

    def test_refuses_an_entry_without_a_reason(self):
        with self.assertRaises(SystemExit):
            self.read("first\n")

    def test_tells_equal_mutants_of_a_function_apart(self):
        folder = Path(self.enterContext(tempfile.TemporaryDirectory()))
        path = folder / "sample.cpp"
        path.write_text(PRELUDE + "void f() { close(7); close(7); }")
        names = list(identities(mutants_of(syntax.Source(syntax.parse(path, []), path, "sample.cpp"))).values())
        self.assertIn("sample.cpp  f  constant  7 -> 8", names)
        self.assertIn("sample.cpp  f  constant  7 -> 8  (2)", names)


if __name__ == "__main__":
    unittest.main()
