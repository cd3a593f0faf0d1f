#!/usr/bin/python3
"""Static checks of FLAIR.dll with a real PE reader: architecture, exports and
their ordinals, imports (host libraries by ordinal only, otherwise system
libraries), and the resources: dialog 6300, every string, the icon, the version.
(The dialog's controls are checked live, by the editor run under Wine.)

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

results = []


def check(ok, name, detail=''):
    results.append(bool(ok))
    print(('PASS ' if ok else 'FAIL ') + name + ('' if ok or not detail else ': ' + str(detail)))


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

    check((5, 6300) in resources, 'dialog 6300')

    passed = sum(results)
    print('%d passed, %d failed' % (passed, len(results) - passed))
    return 0 if passed == len(results) else 1


if __name__ == '__main__':
    sys.exit(main())
