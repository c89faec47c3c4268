"""Tests of the generator's naming, spelling and typing rules and of the
catalogue data."""

import json
import os
import sys
import tempfile
import unittest

SRC = os.environ.get("KW_SOURCE_DIR") or os.path.abspath(
    os.path.join(os.path.dirname(__file__), "..", ".."))
sys.path.insert(0, os.path.join(SRC, "generator"))

import anchors  # noqa: E402
import catalogue  # noqa: E402
import layout  # noqa: E402
import rules  # noqa: E402

CATALOGUE = os.path.join(SRC, "typelib", "catalogue")


class Spelling(unittest.TestCase):
    def setUp(self):
        self.cat = catalogue.load(CATALOGUE)

    def test_every_known_name_is_in_compiler_spelling(self):
        self.assertEqual(570, len(self.cat.known_names))
        for name in self.cat.known_names:
            self.assertEqual(name, rules.compiler_spelling(name), name)

    def test_clang_spellings_become_compiler_spellings(self):
        enums = {"Qt::WindowType", "QLocale::Country", "QLibrary::LoadHint"}
        cases = {
            "QHash<QObject *, QObject **>": "QHash<QObject *,QObject * *>",
            "QList<void (*)()>": "QList<void (__cdecl*)(void)>",
            "QList<QObject *(*)()>": "QList<QObject * (__cdecl*)(void)>",
            "QHash<int, void (*)(void *)>": "QHash<int,void (__cdecl*)(void *)>",
            "QList<bool (*)(void **)>": "QList<bool (__cdecl*)(void * *)>",
            "QFlags<Qt::WindowType>": "QFlags<enum Qt::WindowType>",
            "QList<QLocale::Country>": "QList<enum QLocale::Country>",
            "QList<QPair<int, int> >": "QList<QPair<int,int> >",
            "QVector<const char *>": "QVector<char const *>",
            "QHash<const QObject *, int>": "QHash<QObject const *,int>",
            "QVarLengthArray<tagMSG, 256>": "QVarLengthArray<tagMSG,256>",
            "long long": "__int64",
            "unsigned long long": "unsigned __int64",
            "const QString &": "QString const &",
            "QObject *const &": "QObject * const &",
        }
        for clang, msvc in cases.items():
            self.assertEqual(msvc, rules.compiler_spelling(clang, enums), clang)

    def test_flatten_examples(self):
        cases = {
            "QTextCodec::ConverterState": "QTextCodec_ConverterState",
            "QList<QString>": "QList_QString_",
            "QList<QTextCodec *>": "QList_QTextCodec___",
            "QFlags<enum QLibrary::LoadHint>": "QFlags_enum_QLibrary_LoadHint_",
            "QVarLengthArray<tagMSG,256>": "QVarLengthArray_tagMSG_256_",
            "QList<void (__cdecl*)(void)>": "QList_void____cdecl___void__",
            "QMultiHash<QObject *,QObject * *>": "QMultiHash_QObject___QObject_____",
            "std::_Iterator_base": "std__Iterator_base",
        }
        for name, flat in cases.items():
            self.assertEqual(flat, rules.flatten(name))


class Naming(unittest.TestCase):
    def test_member_names(self):
        def name(kind, n, result="void"):
            return rules.member_base_name("QString", {"kind": kind, "name": n, "result": result})
        self.assertEqual("QString_DTOR_QString", name("destructor", "~QString"))
        self.assertEqual("QString_operator_LESS_ASSIGMENT", name("operator", "operator<="))
        self.assertEqual("QString_operator_ASSIGMENT", name("operator", "operator="))
        self.assertEqual("QString_operator_INDEXING", name("operator", "operator[]"))
        self.assertEqual("QString_operator_MINUS_GREATER", name("operator", "operator->"))
        self.assertEqual("QString_operator_char_const__ASTERIX",
                         name("conversion", "operator char const *", "char const *"))
        self.assertEqual("QString_operator_QModelIndex_const__AND",
                         name("conversion", "operator QModelIndex const &", "QModelIndex const &"))
        self.assertEqual("QString_arg", name("method", "arg"))
        # A template instance's destructor carries its template arguments; a
        # nested class's is named after the nested class alone.
        dtor = {"kind": "destructor", "name": "~QList", "result": "void"}
        self.assertEqual("QList_int__DTOR_QList_int_", rules.member_base_name("QList<int>", dtor))
        self.assertEqual("QMap_QString_QMap_QString_QVariant____const_iterator_DTOR_const_iterator",
                         rules.member_base_name("QMap<QString,QMap<QString,QVariant> >::const_iterator",
                                                dict(dtor, name="~const_iterator")))

    def test_overload_numbering(self):
        self.assertEqual(["a", "b", "a_2", "a_3", "b_2"],
                         rules.number_overloads(["a", "b", "a", "a", "b"]))

    def test_iids(self):
        self.assertEqual("562BC544-7B64-4D29-A69F-614F7D90F12F", rules.interface_iid("Iwrp_QString"))
        a = rules.interface_iid("Iwrp_QSize")
        self.assertEqual(a, rules.interface_iid("Iwrp_QSize"))
        self.assertNotEqual(a, rules.interface_iid("Iwrp_QSizeF"))
        cat = catalogue.load(CATALOGUE)
        iids = {rules.interface_iid(rules.interface_name(e.flat)) for e in cat.entries}
        self.assertEqual(643, len(iids))


class Types(unittest.TestCase):
    def m(self, text):
        return rules.map_type(rules.parse_type(text))[:2]

    def test_parameter_table(self):
        self.assertEqual(("long", "in"), self.m("bool"))
        self.assertEqual(("long", "in"), self.m("enum QChar::Category"))
        self.assertEqual(("unsigned int", "in"), self.m("unsigned int"))
        self.assertEqual(("__int64", "in"), self.m("__int64"))
        self.assertEqual(("unsigned char", "in"), self.m("char"))
        self.assertEqual(("float", "in"), self.m("float"))
        self.assertEqual(("unsigned char*", "in, out"), self.m("char const *"))
        self.assertEqual(("unsigned short*", "in, out"), self.m("unsigned short const *"))
        self.assertEqual(("int*", "in, out"), self.m("int &"))
        self.assertEqual(("int*", "in, out"), self.m("int const &"))
        self.assertEqual(("long*", "in, out"), self.m("bool *"))
        self.assertEqual(("void*", "in, out"), self.m("void *"))
        self.assertEqual(("void**", "in, out"), self.m("void * *"))
        self.assertEqual(("IDispatch*", "in"), self.m("QString const &"))
        self.assertEqual(("IDispatch*", "in"), self.m("QWidget *"))
        self.assertEqual(("IDispatch*", "in"), self.m("QFlags<enum Qt::WindowType>"))

    def test_inexpressible(self):
        for text in ("QObject * const &", "void (__cdecl*)(void)", "QWidget * *",
                     "char [16]", "long double", "wchar_t const *"):
            with self.assertRaises(rules.Inexpressible, msg=text):
                rules.map_type(rules.parse_type(text))

    def test_results(self):
        known = {"QString", "QWidget"}
        r = lambda t: rules.map_result(rules.parse_type(t), known)
        self.assertIsNone(r("void"))
        self.assertEqual("int*", r("int"))
        self.assertEqual("int**", r("int &"))
        self.assertEqual("unsigned char**", r("char *"))
        self.assertEqual("IDispatch**", r("QString const &"))
        self.assertEqual("IDispatch**", r("QWidget *"))
        with self.assertRaises(rules.Inexpressible):
            r("QStringRef")


class Layout(unittest.TestCase):
    """A dropped candidate keeps its suffix and its DISPID; each half counts
    from the first number again."""

    def build(self, classes_tsv, members, known=("A", "B", "QString"), records=None):
        d = tempfile.mkdtemp()
        with open(os.path.join(d, "classes.tsv"), "w") as f:
            f.write(classes_tsv)
        with open(os.path.join(d, "known_type_names.txt"), "w") as f:
            f.write("".join(k + "\n" for k in known))
        cat = catalogue.load(d)
        classes = {p: {"place": p, "found": True, "members": ms} for p, ms in members.items()}
        for p, extra in (records or {}).items():
            classes[p].update(extra)
        return layout.build(cat, classes)

    def test_dropping_and_halves(self):
        def f(name, params=(), result="void"):
            return {"name": name, "kind": "method", "result": result,
                    "params": [{"name": "", "type": t} for t in params]}
        itfs = self.build(
            "0\t1\tvalue\t0\t1\tA\n1\t1\tvalue\t0\t1\tB\n2\t2\tvalue\t0\t1\tC\n",
            {0: [f("f", ["int"]), f("f", ["A * const &"]), f("f", ["double"]), f("g")],
             1: [f("h", result="QStringRef"), f("h", ["QObject *"]), f("h", ["B const &"])],
             2: [f("k", result="QString")]})
        a, b, c = itfs
        # A reference to a pointer has no Automation form; the dropped
        # overload keeps its suffix and number.
        self.assertEqual([("A_f_2", 0x0D001001, "double"), ("A_f_3", 0x0D001002, "int"),
                          ("A_g", 0x0D001003, None)],
                         [(m.name, m.dispid, m.params[0].cxx if m.params else None)
                          for m in a.kept])
        # Neither a result nor an argument of a class without a wrapper.
        self.assertEqual([("B_h", 0x0D001004, "B const &")],
                         [(m.name, m.dispid, m.params[0].cxx) for m in b.kept])
        self.assertEqual(3, len(b.members))
        self.assertEqual([("C_k", 0x0D001000)], [(m.name, m.dispid) for m in c.kept])
        self.assertEqual("IDispatch**", c.kept[0].retval)

    def test_class_nested_out_of_reach(self):
        # L<int>::Node is private to L<int>: the iterator's constructor from
        # a node and a function returning one cannot be written, even though
        # the node itself has an interface.
        def f(name, params=(), result="void", kind="method"):
            return {"name": name, "kind": kind, "result": result,
                    "params": [{"name": "", "type": t} for t in params]}
        node, it = self.build(
            "0\t1\titerator\t0\t1\tL<int>::Node\n1\t1\titerator\t0\t1\tL<int>::iterator\n",
            {0: [], 1: [f("iterator", ["L<int>::Node *"], kind="constructor"),
                        f("node", result="L<int>::Node *"), f("next", result="L<int>::iterator")]},
            known=("L<int>::Node", "L<int>::iterator"),
            records={0: {"type": "L<int>::Node", "nested_access": "private"},
                     1: {"type": "L<int>::iterator"}})
        self.assertEqual([], node.members)
        self.assertEqual([False, False, True], [m.kept for m in it.members])
        self.assertIn("private", it.members[0].reason)
        self.assertEqual(("L_int__iterator_next", 0x0D001002), (it.kept[0].name, it.kept[0].dispid))

    def test_wrapper_check_only_where_code_runs(self):
        # D has no wrapper class (wrapped column 0): its members keep object
        # arguments and results of classes without a wrapper, which W, a
        # wrapped class, drops, QFlags excepted.  A pointer to a template's
        # own argument is the template parameter and takes any wrapper; the
        # same class by reference, or in a class that is not its template
        # argument, does not.  D itself, a declared-only Qt class, is a class
        # of the library that W may take and give; R, a declared-only runtime
        # entry, is not.
        def f(name, params=(), result="void", kind="method"):
            return {"name": name, "kind": kind, "result": result,
                    "params": [{"name": "", "type": t} for t in params]}
        d, w, p, _r = self.build(
            "0\t1\tvalue\t0\t0\tD\n1\t1\tvalue\t0\t1\tW\n2\t1\tvalue\t0\t1\tP<QObject>\n"
            "3\t1\truntime\t0\t0\tstd::R\n",
            {0: [f("take", ["QObject *"]), f("give", result="QTransform"), f("bad", ["int * &"])],
             1: [f("take", ["QObject *"]), f("give", result="QTransform"), f("ok", ["A *"]),
                 f("flags", result="QFlags<enum Qt::WindowType>"),
                 f("setFlags", ["QFlags<enum Qt::WindowType>"]),
                 f("local", result="D"), f("setLocal", ["D const &"]), f("std", result="std::R"),
                 f("setStd", ["std::R const &"])],
             3: [],
             2: [f("operator=", ["QObject *"], "P<QObject> &", "operator"), f("get", result="QObject *"),
                 f("ref", ["QObject const &"])]},
            known=("A", "W", "P<QObject>"))
        self.assertEqual(["D_take", "D_give"], [m.name for m in d.kept])
        self.assertEqual("IDispatch*", d.kept[0].params[0].idl)
        self.assertEqual("IDispatch**", d.kept[1].retval)
        # QFlags need no wrapper either way: the manager answers for a
        # result under a name it may not know.
        self.assertEqual([("W_ok", 0x0D001005), ("W_flags", 0x0D001006), ("W_setFlags", 0x0D001007),
                          ("W_local", 0x0D001008), ("W_setLocal", 0x0D001009)],
                         [(m.name, m.dispid) for m in w.kept])
        self.assertEqual(("IDispatch**", "IDispatch*"), (w.kept[3].retval, w.kept[4].params[0].idl))
        self.assertEqual(["W_std", "W_setStd"], [m.name for m in w.members if not m.kept][-2:])
        self.assertEqual(("IDispatch**", "IDispatch*"), (w.kept[1].retval, w.kept[2].params[0].idl))
        self.assertEqual([("P_QObject__operator_ASSIGMENT", "IDispatch*", "IDispatch**")],
                         [(m.name, m.params[0].idl, m.retval) for m in p.kept])

    def test_overloads_stand_together_in_parameter_order(self):
        def f(name, params=()):
            return {"name": name, "kind": "static", "result": "int",
                    "params": [{"name": "", "type": t} for t in params]}
        (a,) = self.build("0\t1\tvalue\t0\t1\tA\n", {0: [
            f("number", ["int", "int"]), f("size"), f("number", ["unsigned int", "int"]),
            f("number", ["double", "char", "int"]), f("number", ["__int64", "int"]),
            f("set", ["int", "int"]), f("set", ["QString const &"])]})
        self.assertEqual([("A_number", "__int64"), ("A_number_2", "double"),
                          ("A_number_3", "int"), ("A_number_4", "unsigned int"),
                          ("A_size", None), ("A_set", "QString const &"), ("A_set_2", "int")],
                         [(m.name, m.params[0].cxx if m.params else None) for m in a.kept])
        self.assertEqual(list(range(0x0D001000, 0x0D001007)), [m.dispid for m in a.kept])

    def test_anchors_hold_or_say_why(self):
        def f(name, params=(), kind="method"):
            return {"name": name, "kind": kind, "result": "void",
                    "params": [{"name": "", "type": t} for t in params]}
        itfs = self.build(
            "0\t1\tvalue\t3\t1\tA\n1\t1\tvalue\t2\t1\tB\n",
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
                          "  A_f: f(double), 0x0D001000 kept",
                          "  A_f_2: f(int), 0x0D001001 kept"], results[1].details)
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
    def setUp(self):
        self.cat = catalogue.load(CATALOGUE)

    def test_places_halves_and_declared_only(self):
        self.assertEqual(643, len(self.cat.entries))
        self.assertEqual(373, sum(1 for e in self.cat.entries if e.half == 1))
        self.assertEqual("QColor", self.cat.entries[373].type_name)
        self.assertEqual(74, sum(1 for e in self.cat.entries if not e.wrapped))
        self.assertEqual(8031, sum(e.members for e in self.cat.entries))
        self.assertEqual(113, sum(1 for e in self.cat.entries if e.members == 0))
        flats = [e.flat for e in self.cat.entries]
        self.assertEqual(len(flats), len(set(flats)))
        self.assertEqual(169, max(len(rules.interface_name(f)) for f in flats))

    def test_known_names_and_compositions(self):
        flats = {e.flat: e for e in self.cat.entries}
        wrapped = {e.flat for e in self.cat.entries if e.wrapped}
        known = {rules.flatten(n) for n in self.cat.known_names}
        self.assertEqual(wrapped | {"QWorkspace"}, known)
        sizes = {}
        for name, wrappers in self.cat.compositions.items():
            sizes[len(wrappers)] = sizes.get(len(wrappers), 0) + 1
            for w in wrappers:
                self.assertIn(w, flats)
                self.assertTrue(flats[w].wrapped, w)
        self.assertEqual({1: 407, 2: 109, 3: 39, 4: 9, 5: 5, 6: 1}, sizes)
        self.assertEqual(["QWidget"], self.cat.compositions["QWorkspace"])
        self.assertEqual(["QWidget", "QAbstractButton", "QPushButton"],
                         self.cat.compositions["QPushButton"])


class Declarations(unittest.TestCase):
    def test_committed_file_covers_the_catalogue(self):
        header, classes = layout.read_declarations(
            os.path.join(SRC, "typelib", "qt48", "declarations.jsonl"))
        self.assertEqual("4.8.7", header["qt"])
        self.assertEqual(list(range(643)), sorted(classes))
        button = classes[472]
        self.assertEqual("QAbstractButton", button["type"])
        kinds = {m["kind"] for m in button["members"]}
        self.assertIn("destructor", kinds)
        slots = [m["name"] for m in button["members"] if m["access"] == "public slot"]
        self.assertEqual(["setIconSize", "animateClick", "click", "toggle", "setChecked"], slots)
        for rec in classes.values():
            for m in rec.get("members", []):
                self.assertEqual(m["result"], rules.compiler_spelling(m["result"]))


if __name__ == "__main__":
    unittest.main()
