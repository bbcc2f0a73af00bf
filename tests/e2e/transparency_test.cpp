#include <cstdlib>
#include <fstream>
#include <ostream>

#include "tests/e2e/session_fixture.h"

// Under a policy that allows everything, programs must not be able to tell that they are supervised.

namespace e2e {

namespace {

struct way_of_work {
    const char* name;
    const char* needs; ///< a program of the machine
    const char* script;
};

constexpr way_of_work ways[] = {
    {"sockets", "python3", R"(exec python3 - <<'END'
import os, socket, stat
def tell(name, *addresses):
    one = socket.socket(socket.AF_UNIX)
    for to in addresses:
        try: print(name, one.bind(to), one.getsockname())
        except OSError as e: print(name, e.errno)
    return one
os.umask(0o27); os.mkdir('in'); os.symlink('in', 'link')
listening = tell('relative', 'in/a'); listening.listen(); print(oct(os.stat('in/a').st_mode))
peer = socket.socket(socket.AF_UNIX); peer.connect('link/a'); print(peer.getpeername())
tell('link', 'link/b'); tell('taken', 'in/a', 'in/c', 'in/d'); tell('none', 'none/a'); tell('directory', 'in')
tell('file', '/proc/version/x'); tell('long', 'in/' + 'x' * 104); tell('abstract', '\0transparent'); tell('slash', 'in/e/')
own = socket.socket(socket.AF_UNIX); own.bind(''); print(len(own.getsockname())); print(sorted(os.listdir('in')))
inet = socket.socket(); inet.bind(('127.0.0.1', 0)); print(inet.getsockname()[0])
try: os.close(3); socket.socket(fileno=0)
except OSError as e: print(e.errno)
END
)"},
    {"shell", "bash", R"(cat <<END | tr a-z A-Z
here $((1 + 2))
END
        diff <(printf 'a\nb\n') <(printf 'a\nc\n'); echo kept > >(cat >substituted); wait $!
        (mkfifo p; echo through >p & read x <p; echo "$x"; wait)
        set -m; sleep 0.3 & jobs; fg; echo $?
        umask 027; echo x >made; umask 0; mkdir d; : >d/all; chmod 1700 d; ln -s d/all l; ln d/all h
        mkdir gone; cd gone; rmdir ../gone; : >x; echo $?; cd ..; pwd -P | wc -c
        kill -0 $$; kill -l 9; (kill -TERM $BASHPID); echo $?
        touch -d @1000000000 made; touch -a -d @1100000000 made; touch -h -d @1200000000 l; cp -a made copied
        mkdir -m 2750 s; install -m 4711 made i; chmod +x made; chmod a=,u+rws h; : >s/inherits
        cat none; : >/proc/version; ls /proc/self/fd | wc -l)"},
    {"calls", "python3", R"(exec python3 - <<'END'
import ctypes, os, stat, threading
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
libc = ctypes.CDLL(None, use_errno=True)
libc.linkat(-100, b'/proc/self/fd/%d' % nameless, -100, b'linked', 0x400); tell('linked', lambda: os.stat('linked').st_size)
here = os.open('.', os.O_PATH); os.mkdir('sub', 0o750, dir_fd=here); os.rename('f', 'sub/g', src_dir_fd=here)
tell('rmdir', lambda: os.rmdir('sub', dir_fd=here))
os.utime('sub/g', ns=(10**18, 10**18)); os.truncate('sub/g', 7); os.chmod('sub/g', 0o604)
about = os.stat('sub/g'); print(about.st_size, oct(about.st_mode), os.access('sub/g', os.X_OK))
tell('xattr', lambda: os.getxattr('sub/g', 'user.none'))
tell('xattr kept', lambda: (os.setxattr('sub/g', 'user.b', b'value'), os.getxattr('sub/g', 'user.b')))
tell('gone', lambda: os.kill(2**22 - 1, 0))
tell('watch', lambda: (libc.inotify_add_watch(libc.inotify_init(), b'sub', 2), libc.inotify_add_watch(0, b'none', 2), ctypes.get_errno()))
def sets_times(name, call):
    os.utime('sub/g', (1, 2)); os.utime('sub', (1, 2)); changed = os.stat('sub/g').st_ctime_ns
    tell(name, lambda: (call(), '')[1])
    for n in 'sub/g', 'sub': print(os.stat(n).st_atime == 1, os.stat(n).st_mtime == 2, end=' ')
    print()
for name, call in {'reads': lambda: open('sub/g').read(), 'changes nothing': lambda: open('sub/g', 'r+'),
                   'appends': lambda: open('sub/g', 'a').write('x'), 'empties': lambda: open('sub/g', 'w'),
                   'cuts': lambda: os.truncate('sub/g', 0), 'mode': lambda: os.chmod('sub/g', 0o644),
                   'no atime': lambda: os.read(os.open('sub/g', os.O_RDONLY | os.O_NOATIME), 1),
                   'owner': lambda: os.chown('sub/g', -1, -1), 'link': lambda: os.link('sub/g', 'sub/l'),
                   'symlink': lambda: os.symlink('g', 'sub/s'), 'rename': lambda: os.rename('sub/l', 'sub/m'),
                   'unlink': lambda: os.unlink('sub/m'), 'fifo': lambda: os.mkfifo('sub/p'),
                   'list': lambda: os.listdir('sub'), 'attribute': lambda: os.setxattr('sub/g', 'user.a', b'x'),
                   'through': lambda: os.open('sub/s', os.O_WRONLY | os.O_TRUNC), 'now': lambda: os.utime('sub/g'),
                   'exists': lambda: os.mkdir('sub/g'), 'nobody': lambda: os.chown('sub/g', 0, 0)}.items():
    sets_times(name, call)
def opens(i):
    for n in range(50):
        with open('t%d' % i, 'a') as f: f.write('x')
all = [threading.Thread(target=opens, args=(i,)) for i in range(64)]
[t.start() for t in all]; [t.join() for t in all]; print(sum(os.stat('t%d' % i).st_size for i in range(64)))
top = os.getcwd()
for i in range(4):
    os.mkdir('w%d' % i)
    with open('w%d/name' % i, 'w') as f: f.write(str(i))
def seen():
    with open('name') as f: return f.read()
def wander():
    for i in range(20): os.chdir('%s/w%d' % (top, i % 4))
for again in range(60):
    other = threading.Thread(target=wander); os.chdir('w2'); other.start()
    while other.is_alive(): seen()
    print(seen()); os.chdir(top); print(os.path.exists('name'), len(os.listdir('w3')))
END
)"},
    {"python", "python3", R"(exec python3 - <<'END'
import os, shutil, signal, socket, stat, subprocess, tempfile
print(subprocess.run(['sh', '-c', 'echo $0; exit 3'], capture_output=True))
print(subprocess.run('echo $A; pwd; echo no >&2', shell=True, env={'A': 'b'}, cwd='/', stderr=subprocess.STDOUT, stdout=-1))
one = subprocess.Popen(['cat'], stdin=-1, stdout=-1); two = subprocess.Popen(['tr', 'a', 'b'], stdin=one.stdout, stdout=-1)
one.stdin.write(b'abc'); one.stdin.close(); print(two.communicate(), one.wait())
for bad in ['none'], ['/'], ['/etc/passwd']:
    try: subprocess.run(bad)
    except OSError as e: print(e)
try: subprocess.run(['sleep', '9'], timeout=0.1, start_new_session=True)
except subprocess.TimeoutExpired: print('late')
slow = subprocess.Popen(['sleep', '9'], preexec_fn=lambda: os.umask(0o77)); slow.send_signal(signal.SIGINT); print(slow.wait())
os.makedirs('a/b/c'); open('a/f', 'w').write('x'); os.chmod('a/f', 0o751); os.utime('a/f', (5, 6)); os.symlink('f', 'a/l')
shutil.copytree('a', 'copy', symlinks=True); shutil.move('copy/b', 'moved'); shutil.copy2('a/f', 'two'); shutil.rmtree('copy')
print(shutil.make_archive('packed', 'gztar', 'a'), shutil.which('sh')); shutil.unpack_archive('packed.tar.gz', 'out')
os.utime('out', (5, 6)); os.unlink('packed.tar.gz'); print(sorted(os.walk('out')), shutil.copymode('a/f', 'two'))
with tempfile.TemporaryDirectory(dir='.') as d, tempfile.NamedTemporaryFile(dir=d) as f: print(oct(os.stat(f.name).st_mode))
a, b = socket.socketpair(); a.send(b'x'); print(b.recv(1))
server = socket.socket(socket.AF_UNIX); server.bind('sock'); print(stat.S_ISSOCK(os.stat('sock').st_mode))
server.listen(); client = socket.socket(socket.AF_UNIX); client.connect('sock'); peer = server.accept()[0]
socket.send_fds(client, [b'x'], [os.open('a/f', os.O_RDONLY)]); print(os.read(socket.recv_fds(peer, 1, 1)[1][0], 1))
over = socket.create_server(('127.0.0.1', 0)); socket.create_connection(over.getsockname()); print(over.accept()[1][0])
END
)"},
    {"git", "git",
     R"(export HOME=$PWD GIT_CONFIG_NOSYSTEM=1 GIT_AUTHOR_DATE='1112911993 +0000' GIT_COMMITTER_DATE='1112911993 +0000'
        git init -q -b main r && cd r && git config user.name n && git config user.email e
        for i in 1 2 3 4 5; do echo $i >f$i; git add . && git commit -qm $i; done
        git gc -q; git log --format=%H; git fsck; chmod 640 f1; touch -d @1000000000 f1 f2
        tar cpf ../packed f1 f2 .git/HEAD; mkdir ../out; tar xpvf ../packed -C ../out; rm ../packed)"},
    {"make", "make",
     R"(all=({1..24}); printf 'all: %s\n%%:\n\t@sh -c "echo made >$@.out"\n' "${all[*]}" >Makefile
        make -s -j2; cat *.out; make nothing-there 2>&1 | head -1)"},
    {"compiler", "g++",
     R"(printf '#include <string>\nint main(int n, char **a) { return std::string(a[n - 1]).size(); }\n' >x.cpp
        g++ -O1 -Wall -o x x.cpp && ./x three; echo $?; g++ -c -o x.o x.cpp; cksum <x.o; g++ -c none.cpp)"},
    {"chroot", "chroot", R"([ $(id -u) = 0 ] || exit 0
        mkdir -p r/d; for f in $(ldd /bin/sh | grep -o '/[^ ]*') /bin/sh; do mkdir -p r${f%/*}; cp $f r$f; done
        ln -s /d/up r/l; ln -s ../../../d r/d/out
        chroot r /bin/sh -c 'cd d; echo x >/made; read y <../../../made; echo $y; echo z >/l; read y <out/up; echo $y
            cd /; pwd; umask 077; : >/../private; echo /*; /bin/sh -c "echo again; exit 4"; echo $?; /bin/none
            /l; (: >/proc/self/x); (: >/none/x); exec 3</; cd /proc/self/fd/3'
        chroot --userspec 65534:65534 r /bin/sh -c '(echo x >/made); (: <private); echo /d/*'
        chroot none /bin/sh; rm -r r/[lu]*)"},
    {"setuid", "setpriv", R"([ $(id -u) = 0 ] || exit 0
        for t in id touch cat; do cp $(command -v $t) .; done; chown 65534:65533 id touch; chmod 6755 id touch cat
        chmod 777 .; ./id; ./touch theirs; echo x >mine; chmod 600 mine
        as="setpriv --reuid 65533 --regid 65533 --clear-groups"; $as ./id -u; $as ./cat mine; $as cat mine
        $as ./touch also; $as --no-new-privs ./cat mine)"},
    {"stress", "stress-ng", R"([ -O .. ] || exit 0 # not as each user
        t=$(mktemp -d /dev/shm/sorvanic-XXXXXX); set --
        for s in access chmod chown chroot close copy-file dentry dir dirdeep dirmany dup fcntl fifo file-ioctl filename \
            flock fork fstat getdent handle inotify kill lease locka lockf lockofd mknod open rename seek sendfile \
            sockpair splice tee touch utime vfork zombie; do set -- "$@" --$s 1 --$s-ops 5; done
        stress-ng --verify -t 60 --temp-path $t "$@" --link 1 --link-ops 1 --symlink 1 --symlink-ops 1 >told 2>&1
        echo $?; grep -iE 'fail|error' told; rm -r told $t)"},
};

void PrintTo(const way_of_work& way, std::ostream* out)
{
    *out << way.name;
}

struct transparency : session_test, ::testing::WithParamInterface<way_of_work> {
    /// What the script prints and leaves behind, run by `start` in a directory made anew. Times of the
    /// present are not compared.
    std::string work(const command& start, uid_t user)
    {
        const fs::path place = directory() / "work";
        fs::remove_all(place);
        fs::create_directory(place);
        fs::permissions(place, fs::perms::all);
        fs::remove_all(directory() / "state");
        command run = start;
        run.insert(run.end(), {"/usr/bin/env", "PATH=/usr/bin:/bin:/usr/sbin:/sbin", "bash", "-c",
                               "cd '" + place.string() + "' && {\n" + GetParam().script + "\n} 2>&1"});
        const outcome told = child_process(run, directory(), user).wait(120s);
        child_process list({"/bin/sh", "-c",
                            "find \"$0\" -not -path '*/.git/*' -printf '%P %M %n %s %U %G ' "
                            "'(' -newermt 2015-01-01 -printf 'now\\n' -o -printf '%T@\\n' ')' | sort",
                            place},
                           directory());
        return told.out + "status " + std::to_string(told.status) + "\n" + list.wait().out;
    }
};

TEST_P(transparency, a_program_works_as_without_a_session)
{
    if (std::system((std::string("command -v >/dev/null ") + GetParam().needs).c_str()) != 0)
        GTEST_SKIP() << "this machine has no " << GetParam().needs;
    // Everything is decided, and let go for where it lies.
    std::ofstream(policy() / "workdir") << "/usr\n/bin\n" << directory().string() << "\n";
    command supervised = session({"x"});
    supervised.pop_back();
    for (const uid_t user : users()) {
        const std::string bare = work({}, user);
        EXPECT_EQ(work(supervised, user), bare);
        if (user == nobody) {
            command under_root = supervised;
            for (const std::string& word : as_nobody({}))
                under_root.push_back(word);
            EXPECT_EQ(work(under_root, 0), bare) << "of a user under root's supervisor";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(programs, transparency, ::testing::ValuesIn(ways),
                         [](const auto& way) { return way.param.name; });

} // namespace

} // namespace e2e
