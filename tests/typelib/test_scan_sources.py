"""Which Qt sources the source scan compiles, which template bases it
instantiates whole, and which symbols it keeps."""

import os
import tempfile
import unittest

import catalogue
import scan_sources

SOURCE = os.environ.get("KW_SOURCE_DIR",
                        os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))))


def _tree(root, files):
    for rel, text in files.items():
        path = os.path.join(root, rel)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w") as f:
            f.write(text)


class SourceSelection(unittest.TestCase):
    def test_windows_build_files_only(self):
        # "+" marks the files the Windows build compiles on their own (not
        # qcssscanner.cpp, which qcssparser.cpp includes).
        files = """
            +src/gui/kernel/qwidget.cpp +src/gui/kernel/qwidget_win.cpp src/gui/kernel/qwidget_x11.cpp
            src/gui/kernel/qwidget_qpa.cpp src/gui/kernel/qapplication_qws.cpp
            src/gui/embedded/qscreen_qws.cpp src/gui/embedded/qwindowsystem.cpp src/gui/mac/qmacstyle.cpp
            src/gui/image/qimage_sse2.cpp +src/gui/graphicsview/qgraphicslayout_p.cpp
            +src/gui/styles/qwindowsxpstyle.cpp src/gui/kernel/qwidget.h src/corelib/tools/qunicodetables.cpp
            +src/corelib/tools/qstring.cpp src/corelib/io/qfsfileengine_unix.cpp
            +src/corelib/io/qfsfileengine_win.cpp +src/corelib/kernel/qwineventnotifier_p.cpp
            src/gui/text/qcssscanner.cpp +src/gui/text/qcssparser.cpp""".split()
        with tempfile.TemporaryDirectory() as qt:
            _tree(qt, {name.lstrip("+"): "" for name in files})
            _tree(qt, {"src/gui/text/qcssparser.cpp": '#include "qcssscanner.cpp"\n'
                                                      '#include "moc_qcssparser.cpp"\n'})
            for module in ("gui", "corelib"):
                self.assertEqual(sorted(n[1:] for n in files if n.startswith("+src/%s/" % module)),
                                 scan_sources.windows_sources(qt, module))

    def test_generated_files_get_stand_ins(self):
        with tempfile.TemporaryDirectory() as qt, tempfile.TemporaryDirectory() as inc:
            _tree(qt, {"src/gui/a.cpp": '#include "ui_qfiledialog.h"\n#include <moc_a.cpp>\n'
                                        '#include "a.moc"\n#include "qwidget.h"\n'
                                        '#include <QtDebug>\n#include <QtCore/QtAlgorithms>\n'
                                        '#include <QtNowhere>\n'})
            _tree(inc, {"QtCore/qdebug.h": "", "QtCore/qalgorithms.h": ""})
            stubs = scan_sources.make_stub_folder(qt, ["src/gui/a.cpp"], inc)
            self.assertEqual(sorted(os.listdir(stubs)),
                             ["a.moc", "moc_a.cpp", "ui_qfiledialog.h"])
            self.assertEqual(sorted(os.listdir(os.path.join(inc, "QtCore"))),
                             ["QtAlgorithms", "QtDebug", "qalgorithms.h", "qdebug.h"])
            with open(os.path.join(inc, "QtCore", "QtDebug")) as f:
                self.assertEqual(f.read(), '#include "qdebug.h"\n')

    def test_template_bases_of_exported_classes(self):
        with tempfile.TemporaryDirectory() as qt:
            _tree(qt, {
                "src/gui/painting/qpolygon.h":
                    "class Q_GUI_EXPORT QPolygon : public QVector<QPoint>\n{\n};\n"
                    "class Q_GUI_EXPORT QPolygonF : public QVector<QPointF>\n{\n};\n",
                "src/gui/kernel/qlocal.h":
                    "class QNotExported : public QList<int>\n{\n};\n"
                    "class Q_GUI_EXPORT QPlain : public QObject\n{\n};\n",
                "src/gui/kernel/qprivate_p.h":
                    "class Q_GUI_EXPORT QPrivateThing : public QList<QString>\n{\n};\n",
            })
            self.assertEqual(
                scan_sources.exported_template_bases(qt, "QtGui", "gui", "Q_GUI_EXPORT"),
                [("QtGui/qpolygon.h", "QVector<QPoint>"), ("QtGui/qpolygon.h", "QVector<QPointF>")])


class SymbolFilter(unittest.TestCase):
    def test_members_of_catalogue_classes_and_instances(self):
        cat = catalogue.load(os.path.join(SOURCE, "typelib", "catalogue"))
        wanted = scan_sources.catalogue_member_filter(cat)
        for text in ("QList<QString>::append(QString const&)",
                     "QList<QString>::iterator::operator++()",
                     "QVector<int>::at(int) const",
                     "QFlags<Qt::ItemFlag>::operator|(Qt::ItemFlag) const",
                     "QStringList::join(QString const&) const",
                     "QTextCodec::ConverterState::~ConverterState()",
                     "QListData::append()"):
            self.assertTrue(wanted(text), text)
        for text in ("QObject::event(QEvent*)",
                     "QListIterator<QString>::next()",
                     "QStringListModel2::rowCount() const",
                     "qHash(QString const&)",
                     "std::vector<int, std::allocator<int> >::size() const"):
            self.assertFalse(wanted(text), text)


if __name__ == "__main__":
    unittest.main()
