#!/usr/bin/env python3
"""Compiles and runs every C snippet of a README, so that a broken example
fails the build. Usage: readme_snippets.py README WORKDIR CC [ARG...]

Each ```c block becomes the body of main() after #include <orlix_util.h>
(with <stdio.h>, <stdlib.h> and <string.h>); it is compiled as
`CC -std=c99 -Wall -Wextra -Werror -pedantic snippet.c ARG... -o snippet` and
run. It must exit with 0, and what it prints must be, line for line, the
texts of its `/* -> TEXT */` comments in order."""
import os
import re
import subprocess
import sys

readme, workdir, cc, extra = sys.argv[1], sys.argv[2], sys.argv[3], sys.argv[4:]
with open(readme, encoding="utf-8") as f:
    text = f.read()
snippets = re.findall(r"^```c\n(.*?)^```$", text, re.S | re.M)
if not snippets:
    sys.exit(f"no C snippets found in {readme}")
os.makedirs(workdir, exist_ok=True)

PROLOGUE = ("#include <stdio.h>\n#include <stdlib.h>\n#include <string.h>\n\n"
            "#include <orlix_util.h>\n\nint main(void) {\n")
failures = 0
for number, body in enumerate(snippets, 1):
    first = body.strip().splitlines()[0]
    name = f"snippet {number} ({first})"
    expected = [m.strip() for m in re.findall(r"/\* -> (.*?)\*/", body)]
    source = os.path.join(workdir, f"snippet{number}.c")
    program = os.path.join(workdir, f"snippet{number}")
    with open(source, "w", encoding="utf-8") as f:
        f.write(PROLOGUE + body + "  return 0;\n}\n")
    build = subprocess.run([cc, "-std=c99", "-Wall", "-Wextra", "-Werror", "-pedantic", source]
                           + extra + ["-o", program], capture_output=True, text=True)
    if build.returncode != 0:
        print(f"FAIL {name}: does not compile\n{build.stdout}{build.stderr}")
        failures += 1
        continue
    run = subprocess.run([program], capture_output=True, timeout=60)
    lines = run.stdout.decode("utf-8", "replace").splitlines()
    if run.returncode != 0 or lines != expected:
        print(f"FAIL {name}: exit {run.returncode}, printed {lines}, expected {expected}\n"
              f"{run.stderr.decode('utf-8', 'replace')}")
        failures += 1
    else:
        print(f"ok   {name}")
print(f"{len(snippets)} snippets, {failures} failed")
sys.exit(1 if failures else 0)
