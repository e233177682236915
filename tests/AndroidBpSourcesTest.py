#!/usr/bin/env python3
"""Fails when the device build (Android.bp) and the CMake library target list different sources.

Usage: AndroidBpSourcesTest.py <Android.bp> <library_sources.txt written by CMake>
"""
import re
import sys


def bp_library_sources(text, module):
    # Find the cc_library_shared block whose name is `module`, then its srcs list.
    for block in re.finditer(r'cc_library_shared\s*\{', text):
        depth, i = 1, block.end()
        while depth and i < len(text):
            depth += {'{': 1, '}': -1}.get(text[i], 0)
            i += 1
        body = text[block.end():i - 1]
        if re.search(r'\bname\s*:\s*"%s"' % re.escape(module), body):
            srcs = re.search(r'\bsrcs\s*:\s*\[(.*?)\]', body, re.S)
            if not srcs:
                sys.exit('Android.bp: %s has no srcs' % module)
            return set(re.findall(r'"([^"]+)"', srcs.group(1)))
    sys.exit('Android.bp: no cc_library_shared named %s' % module)


def main():
    bp_path, cmake_list = sys.argv[1], sys.argv[2]
    bp = bp_library_sources(open(bp_path).read(), 'libvistrelprovider')
    cmake = {line.strip() for line in open(cmake_list) if line.strip()}
    only_bp, only_cmake = sorted(bp - cmake), sorted(cmake - bp)
    if only_bp or only_cmake:
        print('Android.bp and CMake list different library sources')
        for s in only_bp:
            print('  only in Android.bp: ' + s)
        for s in only_cmake:
            print('  only in CMakeLists.txt: ' + s)
        return 1
    print('%d library sources agree' % len(bp))
    return 0


if __name__ == '__main__':
    sys.exit(main())
