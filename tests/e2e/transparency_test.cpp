#include <cstdlib>

#include "tests/e2e/session_fixture.h"

// Under a policy that allows everything, programs must not be able to tell that they are supervised.

namespace e2e {

namespace {

struct way_of_work {
    const char* needs; ///< a program of the machine
    const char* script;
};

constexpr way_of_work ways[] = {
    {"bash", R"(cat <<END | tr a-z A-Z
here $((1 + 2))
END
        diff <(printf 'a\nb\n') <(printf 'a\nc\n')
        (mkfifo p; echo through >p & read x <p; echo "$x"; wait)
        set -m; sleep 0.05 & jobs; fg; echo $?
        umask 027; echo x >made; umask 0; mkdir d; : >d/all; chmod 1700 d; ln -s d/all l; ln d/all h
        mkdir gone; cd gone; rmdir ../gone; : >x; echo $?; cd ..; pwd -P | wc -c
        kill -0 $$; kill -l 9; (kill -TERM $BASHPID); echo $?
        cat none; : >/proc/version; ls /proc/self/fd | wc -l)"},
    {"python3", R"(exec python3 - <<'END'
import ctypes, os, shutil, socket, stat, subprocess, tempfile, threading
def tell(name, call):
    try: print(name, call())
    except OSError as e: print(name, e.errno)
tell('open', lambda: os.open('none', os.O_RDONLY))
tell('directory', lambda: os.open('.', os.O_WRONLY))
tell('exclusive', lambda: os.open('f', os.O_CREAT | os.O_EXCL | os.O_WRONLY, 0o640) > 0)
tell('again', lambda: os.open('f', os.O_CREAT | os.O_EXCL | os.O_WRONLY))
os.symlink('loop', 'loop'); tell('loop', lambda: os.open('loop', os.O_RDONLY))
tell('nofollow', lambda: os.open('loop', os.O_RDONLY | os.O_NOFOLLOW))
os.symlink('later', 'dangling'); tell('through', lambda: os.open('dangling', os.O_CREAT | os.O_WRONLY) > 0)
nameless = os.open('.', os.O_TMPFILE | os.O_RDWR, 0o600); os.write(nameless, b'tmp')
ctypes.CDLL(None).linkat(-100, b'/proc/self/fd/%d' % nameless, -100, b'linked', 0x400); tell('linked', lambda: os.stat('linked').st_size)
here = os.open('.', os.O_PATH); os.mkdir('sub', 0o750, dir_fd=here); os.rename('f', 'sub/g', src_dir_fd=here)
tell('rmdir', lambda: os.rmdir('sub', dir_fd=here))
os.utime('sub/g', ns=(10**18, 10**18)); os.truncate('sub/g', 7); os.chmod('sub/g', 0o604)
about = os.stat('sub/g'); print(about.st_size, oct(about.st_mode), os.access('sub/g', os.X_OK))
tell('xattr', lambda: os.getxattr('sub/g', 'user.none'))
tell('gone', lambda: os.kill(2**22 - 1, 0))
print(subprocess.run(['sh', '-c', 'echo $0; exit 3'], capture_output=True))
shutil.copytree('sub', 'copy'); shutil.move('copy', 'moved'); print(os.listdir('moved')); shutil.rmtree('moved')
a, b = socket.socketpair(); a.send(b'x'); print(b.recv(1))
server = socket.socket(socket.AF_UNIX); server.bind('sock'); print(stat.S_ISSOCK(os.stat('sock').st_mode))
def opens(i):
    for n in range(50):
        with open('t%d' % i, 'a') as f: f.write('x')
all = [threading.Thread(target=opens, args=(i,)) for i in range(64)]
[t.start() for t in all]; [t.join() for t in all]; print(sum(os.stat('t%d' % i).st_size for i in range(64)))
END
)"},
    {"git",
     R"(export HOME=$PWD GIT_CONFIG_NOSYSTEM=1 GIT_AUTHOR_DATE='1112911993 +0000' GIT_COMMITTER_DATE='1112911993 +0000'
        git init -q -b main r && cd r && git config user.name n && git config user.email e
        for i in 1 2 3 4 5; do echo $i >f$i; git add . && git commit -qm $i; done
        git gc -q; git log --format=%H; git fsck; tar cf - f1 f2 | tar tvf - | cut -c1-10)"},
    {"make", R"(printf 'all: a b c d\n%%:\n\t@sh -c "echo made >$@.out"\n' >Makefile
        make -s -j2; cat *.out; make nothing-there 2>&1 | head -1)"},
};

struct transparency : session_test {
    /// What the script prints and leaves behind, run by `start` in a directory made anew.
    std::string work(const command& start, const std::string& script)
    {
        const fs::path place = directory() / "work";
        fs::remove_all(place);
        fs::create_directory(place);
        command run = start;
        run.insert(run.end(), {"/usr/bin/env", "bash", "-c",
                               "cd '" + place.string() + "' && {\n" + script + "\n} 2>&1"});
        child_process program(run, directory());
        std::string told = program.wait().out;
        child_process list({"/usr/bin/find", place, "-not", "-path", "*/.git/*", "-printf", "%P %M %n %s\n"},
                           directory());
        return told + list.wait().out;
    }
};

TEST_F(transparency, a_program_notices_that_it_is_supervised)
{
    status = "1";
    command supervised = session({"x"});
    supervised.pop_back();
    for (const way_of_work& way : ways) {
        if (std::system((std::string("command -v >/dev/null ") + way.needs).c_str()) != 0)
            continue;
        const std::string bare = work({}, way.script);
        EXPECT_EQ(work(supervised, way.script), bare) << way.needs;
    }
}

} // namespace

} // namespace e2e
