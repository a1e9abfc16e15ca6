"""Where a prefix holds modules for this interpreter.

    module_dir.py PREFIX              prints the folder, relative to the prefix
    module_dir.py --searched FOLDER   exit code 0 when the interpreter searches it without being told
"""

import os
import site
import sys

if sys.argv[1] == "--searched":
    sys.exit(os.path.normpath(sys.argv[2]) not in sys.path)
searched = [*site.getsitepackages(), site.getusersitepackages()]
prefix = os.path.normpath(sys.argv[1])
# Below /usr, /usr/local is somebody else's.
local = os.path.join(prefix, "local", "")
for folder in searched:
    if folder.startswith(os.path.join(prefix, "")) and not folder.startswith(local):
        print(os.path.relpath(folder, prefix))
        break
else:
    print("lib/python{}.{}/site-packages".format(*sys.version_info))
