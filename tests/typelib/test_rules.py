"""Tests of the generator's spelling, naming and marshalling rules, its
layout, and the catalogue data.  The generator's folder is on PYTHONPATH."""

import os
import tempfile
import unittest

import anchors
import automation
import backend_cpp
import backend_script
import catalogue
import identifiers
import layout
import naming
import typenames
from layout import Member, Param
from marshalling import Inexpressible

SRC = os.environ.get("KW_SOURCE_DIR") or os.path.abspath(
    os.path.join(os.path.dirname(__file__), "..", ".."))
CATALOGUE = os.path.join(SRC, "typelib", "catalogue")
FIRST = identifiers.DISPID_BASE


def f(name, params=(), result="void", kind="method"):
    """A declarations record of a member."""
    return {"name": name, "kind": kind, "result": result,
            "params": [{"name": "", "type": t} for t in params]}


class Spelling(unittest.TestCase):
    def test_spellings_and_flattening(self):
        known = catalogue.load(CATALOGUE).known_names
        self.assertEqual(570, len(known))
        self.assertEqual(known, [typenames.compiler_spelling(n) for n in known])
        enums = {"Qt::WindowType", "QLocale::Country"}
        for clang, compiler, flat in [
                ("QHash<QObject *, QObject **>", "QHash<QObject *,QObject * *>", "QHash_QObject___QObject_____"),
                ("QList<void (*)()>", "QList<void (__cdecl*)(void)>", "QList_void____cdecl___void__"),
                ("QList<QObject *(*)()>", "QList<QObject * (__cdecl*)(void)>", None),
                ("QHash<int, void (*)(void *)>", "QHash<int,void (__cdecl*)(void *)>", None),
                ("QList<bool (*)(void **)>", "QList<bool (__cdecl*)(void * *)>", None),
                ("QFlags<Qt::WindowType>", "QFlags<enum Qt::WindowType>", "QFlags_enum_Qt_WindowType_"),
                ("QList<QLocale::Country>", "QList<enum QLocale::Country>", None),
                ("QList<QPair<int, int> >", "QList<QPair<int,int> >", "QList_QPair_int_int___"),
                ("QVector<const char *>", "QVector<char const *>", None),
                ("QHash<const QObject *, int>", "QHash<QObject const *,int>", None),
                ("QVarLengthArray<tagMSG, 256>", "QVarLengthArray<tagMSG,256>", "QVarLengthArray_tagMSG_256_"),
                ("long long", "__int64", None), ("unsigned long long", "unsigned __int64", None),
                ("const QString &", "QString const &", None), ("QObject *const &", "QObject * const &", None),
                ("QTextCodec::ConverterState", "QTextCodec::ConverterState", "QTextCodec_ConverterState"),
                ("QList<QTextCodec *>", "QList<QTextCodec *>", "QList_QTextCodec___"),
                ("std::_Iterator_base", "std::_Iterator_base", "std__Iterator_base")]:
            self.assertEqual(compiler, typenames.compiler_spelling(clang, enums), clang)
            if flat:
                self.assertEqual(flat, naming.flatten(compiler))


class Naming(unittest.TestCase):
    def test_member_names(self):
        for type_name, kind, name, result, want in [
                ("QString", "destructor", "~QString", "void", "QString_DTOR_QString"),
                ("QString", "operator", "operator<=", "bool", "QString_operator_LESS_ASSIGMENT"),
                ("QString", "operator", "operator=", "void", "QString_operator_ASSIGMENT"),
                ("QString", "operator", "operator[]", "void", "QString_operator_INDEXING"),
                ("QString", "operator", "operator->", "void", "QString_operator_MINUS_GREATER"),
                ("QString", "conversion", "operator char const *", "char const *",
                 "QString_operator_char_const__ASTERIX"),
                ("QString", "conversion", "operator QModelIndex const &", "QModelIndex const &",
                 "QString_operator_QModelIndex_const__AND"),
                ("QString", "method", "arg", "void", "QString_arg"),
                # A template instance's destructor carries its template
                # arguments; a nested class's is named after it alone.
                ("QList<int>", "destructor", "~QList", "void", "QList_int__DTOR_QList_int_"),
                ("QMap<QString,QMap<QString,QVariant> >::const_iterator", "destructor", "~const_iterator",
                 "void", "QMap_QString_QMap_QString_QVariant____const_iterator_DTOR_const_iterator")]:
            self.assertEqual(want, naming.member_base_name(type_name, f(name, (), result, kind)))
        self.assertEqual(["a", "b", "a_2", "a_3", "b_2"], naming.number_overloads(["a", "b", "a", "a", "b"]))

    def test_iids(self):
        self.assertEqual("562BC544-7B64-4D29-A69F-614F7D90F12F", identifiers.interface_iid("Iwrp_QString"))
        self.assertEqual("FE899A7A-12EF-47F6-BC39-981A6955DDBC", identifiers.interface_iid("Iwrp_QChar"))
        # Name-based ones never change from build to build.
        self.assertEqual("8A7A4BD8-CE92-560C-987C-7D95B37D9D76", identifiers.interface_iid("Iwrp_QSize"))
        cat = catalogue.load(CATALOGUE)
        self.assertEqual(643, len({identifiers.interface_iid(naming.interface_name(e.flat)) for e in cat.entries}))


class Marshalling(unittest.TestCase):
    """Each row: the IDL form of a parameter, the expression its body passes,
    the result line and the script kinds, for one C++ type of the row."""

    ROWS = [
        # type, IDL, direction, argument (Par0), result statement, kinds
        ("bool", "long", "in", "Par0 != 0", "*RetPar = kwwrap::BoolResult(c);", "bb"),
        ("enum QChar::Category", "long", "in", "static_cast<enum QChar::Category>(Par0)",
         "*RetPar = static_cast<long>(c);", "ee"),
        ("int const", "int", "in", "Par0", "*RetPar = static_cast<int>(c);", "nn"),
        ("unsigned int", "unsigned int", "in", "Par0", "*RetPar = static_cast<unsigned int>(c);", "nn"),
        ("__int64", "__int64", "in", "Par0", "*RetPar = static_cast<__int64>(c);", "nn"),
        ("char", "unsigned char", "in", "static_cast<char>(Par0)",
         "*RetPar = static_cast<unsigned char>(c);", "nn"),
        ("float", "float", "in", "Par0", "*RetPar = static_cast<float>(c);", "nn"),
        ("char const *", "unsigned char*", "in, out", "reinterpret_cast<char const *>(Par0)",
         "*RetPar = kwwrap::PointerResult<unsigned char*>(c);", "tt"),
        ("unsigned short const *", "unsigned short*", "in, out", "reinterpret_cast<unsigned short const *>(Par0)",
         "*RetPar = kwwrap::PointerResult<unsigned short*>(c);", "pp"),
        ("bool *", "long*", "in, out", "reinterpret_cast<bool *>(Par0)",
         "*RetPar = kwwrap::PointerResult<long*>(c);", "pp"),
        ("int const &", "int*", "in, out", "*reinterpret_cast<int const*>(Par0)",
         "*RetPar = kwwrap::WidenedResult<int*>(c);", "pn"),
        ("bool &", "long*", "in, out", "*reinterpret_cast<bool*>(Par0)",
         "*RetPar = kwwrap::WidenedResult<long*>(c);", "pb"),
        ("void *", "void*", "in, out", "static_cast<void *>(Par0)",
         "*RetPar = kwwrap::PointerResult<void*>(c);", "pp"),
        ("void * *", "void**", "in, out", "static_cast<void * *>(Par0)",
         "*RetPar = kwwrap::PointerResult<void**>(c);", "pp"),
        ("QString const &", "IDispatch*", "in", "*arg0.As<QString const>()",
         'return kwwrap::WrapValueResult<QString>(m_pManager, L"QString", RetPar, '
         '[&]() -> decltype(auto) { return c; });', "so"),
        ("QSize", "IDispatch*", "in", "*arg0.As<QSize>()",
         'return kwwrap::WrapValueResult<QSize>(m_pManager, L"QSize", RetPar, '
         '[&]() -> decltype(auto) { return c; });', "oo"),
        ("QFlags<enum Qt::WindowType>", "IDispatch*", "in", "*arg0.As<QFlags<enum Qt::WindowType>>()",
         'return kwwrap::WrapValueResult<QFlags<enum Qt::WindowType>>(m_pManager, '
         'L"QFlags<enum Qt::WindowType>", RetPar, [&]() -> decltype(auto) { return c; });', "oo"),
        ("QWidget const *", "IDispatch*", "in", "arg0.As<QWidget const>()",
         'return m_pManager->CreateWrapper(L"QWidget", kwwrap::InstancePointer(c), RetPar);', "or"),
    ]

    def test_rows(self):
        for text, idl, direction, take, give, kinds in self.ROWS:
            node = typenames.parse_type(text)
            got_idl, got_direction, row = automation.map_type(node)
            self.assertEqual((idl, direction), (got_idl, got_direction), text)
            self.assertEqual(idl + "*", automation.map_result(node, {"QString", "QSize", "QWidget"}), text)
            body = []
            self.assertEqual(take, backend_cpp.argument(body, 0, Param("Par0", idl, direction, row, text)), text)
            # Class arguments are fetched first; the fetch's HRESULT ends the call.
            self.assertEqual(["kwwrap::InstanceArgument arg0(Par0);", "if (FAILED(hr = arg0.Fetch())) return hr;"]
                             if idl == "IDispatch*" else [], body, text)
            member = Member(f("g", (), text), "g", FIRST)
            member.retval = idl + "*"
            self.assertEqual(give, backend_cpp.result_lines(member, "c")[0], text)
            self.assertEqual(kinds, row.arg_kind + backend_script.result_kind(member), text)
        self.assertIsNone(automation.map_result(typenames.parse_type("void")))

    def test_inexpressible_and_unwrapped(self):
        for text in ("QObject * const &", "void (__cdecl*)(void)", "QWidget * *", "char [16]",
                     "long double", "wchar_t const *", "void &", "void"):
            with self.assertRaises(Inexpressible, msg=text):
                automation.map_type(typenames.parse_type(text))
        with self.assertRaises(Inexpressible):
            automation.map_result(typenames.parse_type("QStringRef"), {"QString"})


class Layout(unittest.TestCase):
    """A dropped candidate keeps its suffix and its DISPID; each half counts
    from the first number again."""

    def build(self, classes, members, known=("A", "B", "QString"), records=None):
        with tempfile.TemporaryDirectory() as d:
            with open(os.path.join(d, "classes.tsv"), "w") as out:
                out.write("".join("%d\t%s\t%s\t%s\t%s\t%s\n" % ((i,) + c) for i, c in enumerate(classes)))
            with open(os.path.join(d, "known_type_names.txt"), "w") as out:
                out.write("".join(k + "\n" for k in known))
            cat = catalogue.load(d)
        recs = {p: dict({"place": p, "found": True, "members": ms}, **(records or {}).get(p, {}))
                for p, ms in members.items()}
        return layout.build(cat, recs)

    def test_dropping_and_halves(self):
        a, b, c = self.build(
            [(1, "value", 0, 1, "A"), (1, "value", 0, 1, "B"), (2, "value", 0, 1, "C")],
            {0: [f("f", ["int"]), f("f", ["A * const &"]), f("f", ["double"]), f("g")],
             1: [f("h", result="QStringRef"), f("h", ["QObject *"]), f("h", ["B const &"])],
             2: [f("k", result="QString")]})
        # A reference to a pointer has no Automation form; the dropped
        # overload keeps its suffix and number.
        self.assertEqual([("A_f_2", FIRST + 1, "double"), ("A_f_3", FIRST + 2, "int"), ("A_g", FIRST + 3, None)],
                         [(m.name, m.dispid, m.params[0].cxx if m.params else None) for m in a.kept])
        # Neither a result nor an argument of a class without a wrapper.
        self.assertEqual([("B_h", FIRST + 4, "B const &")], [(m.name, m.dispid, m.params[0].cxx) for m in b.kept])
        self.assertEqual(3, len(b.members))
        self.assertEqual([("C_k", FIRST, "IDispatch**")], [(m.name, m.dispid, m.retval) for m in c.kept])

    def test_class_nested_out_of_reach(self):
        # L<int>::Node is private to L<int>: the iterator's constructor from
        # a node and a function returning one cannot be written.
        node, it = self.build(
            [(1, "iterator", 0, 1, "L<int>::Node"), (1, "iterator", 0, 1, "L<int>::iterator")],
            {0: [], 1: [f("iterator", ["L<int>::Node *"], kind="constructor"),
                        f("node", result="L<int>::Node *"), f("next", result="L<int>::iterator")]},
            known=("L<int>::Node", "L<int>::iterator"),
            records={0: {"type": "L<int>::Node", "nested_access": "private"}, 1: {"type": "L<int>::iterator"}})
        self.assertEqual([], node.members)
        self.assertEqual([False, False, True], [m.kept for m in it.members])
        self.assertIn("private", it.members[0].reason)
        self.assertEqual(("L_int__iterator_next", FIRST + 2), (it.kept[0].name, it.kept[0].dispid))

    def test_wrapper_check_only_where_code_runs(self):
        # D has no wrapper class: its members keep object arguments and
        # results of classes without a wrapper, which W drops, QFlags
        # excepted.  A pointer to a template's own argument takes any
        # wrapper; the same class by reference does not.  D, a declared-only
        # Qt class, is one W may take and give; R, a runtime entry, is not.
        d, w, p, _r = self.build(
            [(1, "value", 0, 0, "D"), (1, "value", 0, 1, "W"), (1, "value", 0, 1, "P<QObject>"),
             (1, "runtime", 0, 0, "std::R")],
            {0: [f("take", ["QObject *"]), f("give", result="QTransform"), f("bad", ["int * &"])],
             1: [f("take", ["QObject *"]), f("give", result="QTransform"), f("ok", ["A *"]),
                 f("flags", result="QFlags<enum Qt::WindowType>"), f("setFlags", ["QFlags<enum Qt::WindowType>"]),
                 f("local", result="D"), f("setLocal", ["D const &"]), f("std", result="std::R"),
                 f("setStd", ["std::R const &"])],
             3: [],
             2: [f("operator=", ["QObject *"], "P<QObject> &", "operator"), f("get", result="QObject *"),
                 f("ref", ["QObject const &"])]},
            known=("A", "W", "P<QObject>"))
        self.assertEqual([("D_take", ("IDispatch*",), None), ("D_give", (), "IDispatch**")],
                         [(m.name, tuple(p.idl for p in m.params), m.retval) for m in d.kept])
        self.assertEqual([("W_ok", FIRST + 5), ("W_flags", FIRST + 6), ("W_setFlags", FIRST + 7),
                          ("W_local", FIRST + 8), ("W_setLocal", FIRST + 9)], [(m.name, m.dispid) for m in w.kept])
        self.assertEqual(["W_std", "W_setStd"], [m.name for m in w.members if not m.kept][-2:])
        self.assertEqual([("P_QObject__operator_ASSIGMENT", "IDispatch*", "IDispatch**")],
                         [(m.name, m.params[0].idl, m.retval) for m in p.kept])

    def test_overloads_stand_together_in_parameter_order(self):
        def s(name, params=()):
            return f(name, params, "int", "static")
        (a,) = self.build([(1, "value", 0, 1, "A")], {0: [
            s("number", ["int", "int"]), s("size"), s("number", ["unsigned int", "int"]),
            s("number", ["double", "char", "int"]), s("number", ["__int64", "int"]),
            s("set", ["int", "int"]), s("set", ["QString const &"])]})
        self.assertEqual([("A_number", "__int64"), ("A_number_2", "double"), ("A_number_3", "int"),
                          ("A_number_4", "unsigned int"), ("A_size", None), ("A_set", "QString const &"),
                          ("A_set_2", "int")], [(m.name, m.params[0].cxx if m.params else None) for m in a.kept])
        self.assertEqual(list(range(FIRST, FIRST + 7)), [m.dispid for m in a.kept])

    def test_anchors_hold_or_say_why(self):
        itfs = self.build(
            [(1, "value", 3, 1, "A"), (1, "value", 2, 1, "B")],
            {0: [f("f", ["int"]), f("f", ["double"]), f("g"), f("g", ["int * &"])],
             1: [f("h"), f("k", ["int"]), f("k", ["int * &"])]})
        with tempfile.TemporaryDirectory() as tmp:
            path = os.path.join(tmp, "anchors.txt")
            with open(path, "w") as out:
                out.write("# comment\n"
                          "Iwrp_A A_f_2 present\nIwrp_A A_f absent   # said twice\n"
                          "Iwrp_A A_g present\nIwrp_B B_k 0x0D001004\nIwrp_B B_k first\n"
                          "Iwrp_B B_h 0x0D001004\nIwrp_B - exactly B_h\nIwrp_C C_x present\n"
                          "Iwrp_A A_f takes (double)\nIwrp_A A_f_2 takes (double)\n")
            results = anchors.check(itfs, anchors.load(path))
            with open(path, "w") as out:
                out.write("Iwrp_A A_f kept\n")
            self.assertRaises(ValueError, anchors.load, path)
        self.assertEqual([True, False, False, False, False, True, False, False, True, False],
                         [r.met for r in results])
        # A name the declarations hold: every candidate of it with its fate.
        self.assertEqual(["the declarations give 2 candidates of that name:",
                          "  A_f: f(double), 0x0D001000 kept", "  A_f_2: f(int), 0x0D001001 kept"],
                         results[1].details)
        self.assertIn("  A_g: g(int * &), 0x0D001002 dropped, no Automation form for int * &",
                      results[2].details)
        # B starts after A's four numbers, one above what the catalogue's
        # three members of A leave.
        self.assertEqual(["generated at 0x0D001005",
                          "the catalogue's number leaves room for at most 1 candidates before it "
                          "(the earlier interfaces of half 1 hold 3 members)",
                          "the declarations give 1 (1 kept, 0 dropped): h() kept; "
                          "in the whole interface 3 candidates, 1 dropped"], results[3].details)
        self.assertEqual(["generated first member: B_h", "candidates before it: 1 (1 kept, 0 dropped): h() kept"],
                         results[4].details)
        self.assertEqual(["also generated: B_k, k(int)"], results[6].details)
        self.assertEqual(["no such interface"], results[7].details)
        self.assertEqual("generated with (int)", results[9].details[0])


class CatalogueData(unittest.TestCase):
    def test_places_halves_known_names_and_compositions(self):
        cat = catalogue.load(CATALOGUE)
        entries = cat.entries
        self.assertEqual((643, 373, "QColor", 74, 8031, 113),
                         (len(entries), sum(e.half == 1 for e in entries), entries[373].type_name,
                          sum(not e.wrapped for e in entries), sum(e.members for e in entries),
                          sum(e.members == 0 for e in entries)))
        flats = {e.flat: e for e in entries}
        self.assertEqual(len(entries), len(flats))
        self.assertEqual(169, max(len(naming.interface_name(f)) for f in flats))
        wrapped = {e.flat for e in entries if e.wrapped}
        self.assertEqual(wrapped | {"QWorkspace"}, {naming.flatten(n) for n in cat.known_names})
        sizes = {}
        for wrappers in cat.compositions.values():
            sizes[len(wrappers)] = sizes.get(len(wrappers), 0) + 1
            self.assertLessEqual(set(wrappers), wrapped)
        self.assertEqual({1: 407, 2: 109, 3: 39, 4: 9, 5: 5, 6: 1}, sizes)
        self.assertEqual(["QWidget"], cat.compositions["QWorkspace"])
        self.assertEqual(["QWidget", "QAbstractButton", "QPushButton"], cat.compositions["QPushButton"])

    def test_committed_declarations_cover_the_catalogue(self):
        header, classes = layout.read_declarations(os.path.join(SRC, "typelib", "qt48", "declarations.jsonl"))
        self.assertEqual("4.8.7", header["qt"])
        self.assertEqual(list(range(643)), sorted(classes))
        button = classes[472]
        self.assertEqual("QAbstractButton", button["type"])
        self.assertIn("destructor", {m["kind"] for m in button["members"]})
        self.assertEqual(["setIconSize", "animateClick", "click", "toggle", "setChecked"],
                         [m["name"] for m in button["members"] if m["access"] == "public slot"])
        for rec in classes.values():
            for m in rec.get("members", []):
                self.assertEqual(m["result"], typenames.compiler_spelling(m["result"]))


if __name__ == "__main__":
    unittest.main()
