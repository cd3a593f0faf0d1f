#!/usr/bin/python3
"""Static checks of FLAIR.dll with a real PE reader: architecture, exports and
their ordinals, imports (host libraries by ordinal only, otherwise system
libraries), and the resources: dialog 6300, every string, the icon, the version.

    check_flair_dll.py FLAIR.dll STRINGS.INC [--arch i386|amd64]
Prints one line per check and "N passed, N failed" at the end."""
import re
import struct
import sys

import pefile

EXPORTS = {
    'InitData': 2, 'CopyData': 3, 'FreeData': 4, 'LoadData': 5, 'SaveData': 6, 'ChangeImage': 7,
    'GenAnimation': 8, 'GenerateDIB': 9, 'GenEdit': 10, 'SetupFrame': 11, 'InitFilter': 12,
    'ChangeQuality': 13, 'SwapData': 14, 'GEN_GeneratorID': 15, 'FLR_EditProc': 16, 'FLR_DisplayFilter': 17,
    'FLR_LineFilter': 18, 'FLR_WaterColor': 19, 'FLR_TextureFilter': 20, 'FLR_Glass': 21,
    'FLR_MeanMapFilter': 22, 'WEP': 23}
HOST_ORDINALS = {
    'ANIMKIT.DLL': {26, 33, 48, 49, 57, 65},
    'BASEKIT.DLL': {100, 101, 107, 301, 302, 309, 316, 401, 409, 411, 702},
    'HUEKIT.DLL': {17, 21, 22},
    'PIXKIT.DLL': {59, 82}}
SYSTEM = {'KERNEL32.DLL', 'USER32.DLL', 'GDI32.DLL', 'COMDLG32.DLL', 'MSVCRT.DLL', 'ADVAPI32.DLL'}

# Dialog 6300: (id, class, text, style bits that must be set, x, y, cx, cy), in template order.
BUTTON, STATIC, SCROLLBAR, COMBOBOX = 0x80, 0x82, 0x84, 0x85
WS_VISIBLE, WS_DISABLED, WS_TABSTOP, WS_GROUP, WS_VSCROLL = 0x10000000, 0x08000000, 0x00010000, 0x00020000, 0x00200000
SS_CENTER, CBS_DROPDOWNLIST, CBS_SORT = 0x1, 0x3, 0x100
CONTROLS = [
    (-1, 'DLLGroupBox', '', WS_DISABLED, 0, 0, 168, 152),
    (1, BUTTON, 'OK', WS_TABSTOP, 64, 136, 32, 14),
    (2, BUTTON, 'Cancel', WS_TABSTOP, 100, 136, 32, 14),
    (210, BUTTON, 'Help', WS_TABSTOP, 138, 136, 28, 14),
    (-1, 'DLLGroupBox', 'Settings', WS_DISABLED, 2, 4, 60, 118),
    (-1, STATIC, 'Type', SS_CENTER | WS_GROUP, 3, 18, 58, 8),
    (200, COMBOBOX, '', CBS_DROPDOWNLIST | CBS_SORT | WS_VSCROLL | WS_TABSTOP, 4, 27, 57, 83),
    (212, BUTTON, 'Color', WS_TABSTOP, 4, 42, 56, 12),
    (202, STATIC, '', SS_CENTER | WS_GROUP, 3, 57, 57, 8),
    (205, SCROLLBAR, '', 0, 4, 66, 56, 10),
    (203, STATIC, '', SS_CENTER | WS_GROUP, 3, 79, 57, 8),
    (206, SCROLLBAR, '', 0, 4, 88, 56, 10),
    (204, STATIC, '', SS_CENTER | WS_GROUP, 3, 101, 57, 8),
    (207, SCROLLBAR, '', 0, 4, 110, 56, 10),
    (-1, 'DLLGroupBox', 'Direction', WS_DISABLED, 2, 123, 60, 27),
    (211, COMBOBOX, '', CBS_DROPDOWNLIST | CBS_SORT | WS_VSCROLL | WS_TABSTOP, 4, 136, 57, 50),
    (-1, 'DLLGroupBox', 'Preview', 0, 64, 4, 102, 118),
    (201, 'EditDispClass', '', 0, 64, 18, 102, 104),
    (209, SCROLLBAR, '', 0, 64, 124, 102, 10),
]

results = []


def check(ok, name, detail=''):
    results.append(bool(ok))
    print(('PASS ' if ok else 'FAIL ') + name + ('' if ok or not detail else ': ' + str(detail)))


def sz_or_ord(data, pos):
    """A dialog template's name-or-ordinal field: returns (value, new position)."""
    first = struct.unpack_from('<H', data, pos)[0]
    if first == 0xFFFF:
        return struct.unpack_from('<H', data, pos + 2)[0], pos + 4
    end = pos
    while struct.unpack_from('<H', data, end)[0] != 0:
        end += 2
    return data[pos:end].decode('utf-16-le'), end + 2


def parse_dialog(data):
    style, _ex, count, x, y, cx, cy = struct.unpack_from('<IIHhhhh', data, 0)
    pos = 18
    _menu, pos = sz_or_ord(data, pos)
    _cls, pos = sz_or_ord(data, pos)
    title, pos = sz_or_ord(data, pos)
    font = None
    if style & 0x40:  # DS_SETFONT
        size = struct.unpack_from('<H', data, pos)[0]
        face, pos = sz_or_ord(data, pos + 2)
        font = (size, face)
    items = []
    for _ in range(count):
        pos = (pos + 3) & ~3
        istyle, _iex, ix, iy, icx, icy, iid = struct.unpack_from('<IIhhhhH', data, pos)
        pos += 18
        cls, pos = sz_or_ord(data, pos)
        text, pos = sz_or_ord(data, pos)
        extra = struct.unpack_from('<H', data, pos)[0]
        pos += 2 + extra
        items.append((iid if iid != 0xFFFF else -1, cls, text, istyle, ix, iy, icx, icy))
    return dict(style=style, rect=(x, y, cx, cy), title=title, font=font, items=items)


def main():
    path, strings_inc = sys.argv[1], sys.argv[2]
    arch = sys.argv[4] if len(sys.argv) > 4 and sys.argv[3] == '--arch' else 'i386'
    pe = pefile.PE(path)
    if arch == 'i386':
        check(pe.FILE_HEADER.Machine == 0x14C and pe.OPTIONAL_HEADER.Magic == 0x10B, 'PE32 for i386',
              hex(pe.FILE_HEADER.Machine))
    else:
        check(pe.FILE_HEADER.Machine == 0x8664, 'PE32+ for x86-64', hex(pe.FILE_HEADER.Machine))
    check(pe.FILE_HEADER.Characteristics & 0x2000 != 0, 'a dynamic library')

    exports = {e.name.decode(): e.ordinal for e in pe.DIRECTORY_ENTRY_EXPORT.symbols if e.name}
    ordinals = sorted(e.ordinal for e in pe.DIRECTORY_ENTRY_EXPORT.symbols)
    check(exports == EXPORTS, 'exports and ordinals', sorted(set(exports.items()) ^ set(EXPORTS.items())))
    check(ordinals == list(range(2, 24)), 'ordinals 2..23, none at 1', ordinals)

    for entry in pe.DIRECTORY_ENTRY_IMPORT:
        dll = entry.dll.decode().upper()
        if dll in HOST_ORDINALS:
            by_name = [i.name for i in entry.imports if i.name]
            used = {i.ordinal for i in entry.imports}
            check(not by_name and used <= HOST_ORDINALS[dll], dll + ' imported by ordinal only',
                  (by_name, sorted(used - HOST_ORDINALS[dll])))
        else:
            check(dll in SYSTEM, dll + ' is a system library')
    imported = {e.dll.decode().upper() for e in pe.DIRECTORY_ENTRY_IMPORT}
    check(set(HOST_ORDINALS) <= imported, 'the four host libraries are imported', sorted(imported))

    resources = {}
    for kind in pe.DIRECTORY_ENTRY_RESOURCE.entries:
        for item in kind.directory.entries:
            key = str(item.name) if item.name is not None else item.id
            lang = item.directory.entries[0]
            resources[(kind.id, key)] = pe.get_data(lang.data.struct.OffsetToData, lang.data.struct.Size)

    # Strings: every id and text of the table, nothing more.
    expected = {}
    for m in re.finditer(r'FLR_STRING\((\d+), "((?:[^"\\]|\\.)*)"\)', open(strings_inc, encoding='utf-8').read()):
        expected[int(m.group(1))] = m.group(2)
    found = {}
    for (kind, block), data in resources.items():
        if kind != 6:
            continue
        pos = 0
        for i in range(16):
            n = struct.unpack_from('<H', data, pos)[0]
            if n:
                found[(block - 1) * 16 + i] = data[pos + 2:pos + 2 + 2 * n].decode('utf-16-le')
            pos += 2 + 2 * n
    check(found == expected, 'string table: %d strings' % len(expected),
          sorted(set(found.items()) ^ set(expected.items()))[:6])

    check((14, 'FLAIR') in resources, 'icon group "FLAIR"', [k for k in resources if k[0] == 14])
    icon = resources.get((14, 'FLAIR'), b'\0' * 20)
    width, height, colours = icon[6], icon[7], icon[8]
    check(struct.unpack_from('<H', icon, 4)[0] == 1 and (width, height, colours) == (32, 32, 16),
          'one 32 x 32 icon image with 16 colours', (width, height, colours))

    version = b''.join(d for (k, _), d in resources.items() if k == 16).decode('utf-16-le', 'ignore')
    check(re.search('FileVersion\0+Version 3.0\0', version) and re.search('ProductVersion\0+Version 3.0\0', version),
          'version block "Version 3.0"')

    dialog = resources.get((5, 6300))
    check(dialog is not None, 'dialog 6300')
    if dialog:
        d = parse_dialog(dialog)
        check(d['title'] == 'Flairize Editor' and d['rect'] == (6, 18, 168, 152) and d['font'] == (9, 'MS Sans Serif'),
              'dialog title, place, size and font', (d['title'], d['rect'], d['font']))
        wanted_style = 0x80000000 | 0x10000000 | 0x00C00000 | 0x00080000 | 0x80 | 0x4  # popup visible caption sysmenu modal 3d
        check(d['style'] & wanted_style == wanted_style, 'dialog style', hex(d['style']))
        check(len(d['items']) == len(CONTROLS), 'dialog has %d controls' % len(CONTROLS), len(d['items']))
        for got, want in zip(d['items'], CONTROLS):
            gid, gcls, gtext, gstyle, *grect = got
            wid, wcls, wtext, wstyle, *wrect = want
            # Window class names compare without regard to case, as Windows compares them.
            same_class = gcls.upper() == wcls.upper() if isinstance(wcls, str) else gcls == wcls
            ok = (gid == wid and same_class and gtext == wtext and gstyle & wstyle == wstyle and grect == wrect
                  and gstyle & WS_VISIBLE)
            check(ok, 'control %d %s %r' % (wid, wcls, wtext), got)

    passed = sum(results)
    print('%d passed, %d failed' % (passed, len(results) - passed))
    return 0 if passed == len(results) else 1


if __name__ == '__main__':
    sys.exit(main())
