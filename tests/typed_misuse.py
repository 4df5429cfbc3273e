"""What must not compile with <tarnwickhdf/typed.h>, and the words that the compiler has for it. All wrong uses are
compiled at once, without any code made. Usage: typed_misuse.py COMPILER INCLUDE_FOLDER..."""
import subprocess
import sys

BEGIN = """#include <tarnwickhdf/typed.h>
using namespace tarnwick::hdf;
struct Inner { int i; };
struct Row { int i; bool flag; Inner inner; const char* text; std::array<std::array<int, 2>, 2> deep; };
struct Owner { int i; std::string text; };
void Use(IGroup& group, const RowType<Inner>& type)
{
"""
WRONG = {
    'StoreArray(group, "x", std::vector<bool>());': "bool has no element type; store std::uint8_t",
    'StoreArray(group, "x", std::vector<char>());': "char has no element type; store std::int8_t",
    'StoreArray(group, "x", std::vector<long double>());': "this type has no element type; those that have one are",
    'StoreAttr(group, "x", Inner());': "this type has no element type; those that have one are",
    'ReadAttr<char16_t>(group, "x");': "this type has no element type; those that have one are",
    'RowType<Row> row1 = {{"flag", &Row::flag}};': "this member can't be a column; those that can",
    'RowType<Row> row2 = {{"inner", &Row::inner}};': "whose own RowType stands behind the pointer to member",
    'RowType<Row> row3 = {{"text", &Row::text}};': "this member can't be a column; those that can",
    'RowType<Row> row4 = {{"deep", &Row::deep}};': "a column's arrays have one dimension",
    'RowType<Owner> row5 = {{"i", &Owner::i}};': "the rows of a table are copied byte for byte; use FixedText",
    'RowType<Inner> copy = type;': "delete",
}

command = [sys.argv[1], "-std=c++17", "-fsyntax-only", "-x", "c++", "-"]
command += [flag for folder in sys.argv[2:] for flag in ("-I", folder)]
uses = "".join(f'#line {number} "wrong"\n    {use}\n' for number, use in enumerate(WRONG, 1))
said = subprocess.run(command, input=BEGIN + uses + "}\n", capture_output=True, text=True, check=False).stderr
missing = [use for number, (use, words) in enumerate(WRONG.items(), 1)
           if f"wrong:{number}:" not in said or words not in said]
if missing:
    sys.exit(f"these compile, or fail in other words: {missing}\n{said}")
