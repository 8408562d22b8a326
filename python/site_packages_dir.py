"""Prints the site-packages folder of this interpreter for an install prefix, relative to it.

Debian's interpreter looks in lib/python3/dist-packages under /usr and in
lib/python3.X/dist-packages under /usr/local; other prefixes get the usual
lib/python3.X/site-packages.
"""
import os
import sys
import sysconfig

prefix = os.path.normpath(sys.argv[1])
schemes = sysconfig.get_scheme_names()
if prefix == "/usr" and "deb_system" in schemes:
    scheme, base = "deb_system", prefix
elif prefix == "/usr/local" and "posix_local" in schemes:
    scheme, base = "posix_local", "/usr"
else:
    scheme, base = "posix_prefix", prefix
path = sysconfig.get_path("platlib", scheme, vars={"base": base, "platbase": base})
print(os.path.relpath(path, prefix), end="")
