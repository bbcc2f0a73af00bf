#!/bin/sh
# Runs in the guest as its first user program, from busybox. Each case runs once without the module, where it
# must be done, and once with it. The host looks for the last line.

failures=0
cases=0

# expect OUTCOME NAME COMMAND...: the command's status is 0 for "done", 1 for "refused".
expect() {
    wanted=$1 name=$2
    shift 2
    "$@" >/tmp/out 2>&1
    case $? in
        0) got=done ;;
        1) got=refused ;;
        *) got=failed ;;
    esac
    cases=$((cases + 1))
    if [ "$got" = "$wanted" ]; then
        echo "ok: $phase: $name"
    else
        failures=$((failures + 1))
        echo "NOT OK: $phase: $name: $got, not $wanted"
        cat /tmp/out
    fi
}

# Lists: what ran from them is logged, so the kernel log tells that the engine has judged.
programs() {
    expect done "a listed program runs" /bin/true
    expect "$1" "an unlisted program" try run /opt/unlisted
    expect "$1" "a black-listed program of a work directory" try run /tools/black
    expect done "an unlisted program of a work directory" try run /tools/unlisted
    expect "$1" "a script whose interpreter is unlisted" try run /opt/script
    expect done "a script whose interpreter is listed" try run /opt/good_script
    expect "$1" "a program in memory" try memory /opt/unlisted
    expect "$1" "a program of a work directory, by a chroot of one's own" \
        chroot /jail /bin/try run /tools/unlisted
}

files() {
    expect "$1" "open to read" try open /data/file
    expect "$1" "open to write" try write /data/file
    expect "$1" "create" try create /data/new
    expect "$1" "mkdir" try mkdir /data/made
    expect "$1" "symlink" try symlink target /data/symlink
    expect "$1" "link into" try link /data/file /data/link
    expect "$1" "rename into" try rename /free/one /data/one
    expect "$1" "rename out of" try rename /data/two /free/two
    expect "$1" "truncate" try truncate /data/file
    expect done "chmod, which no rule judges" try chmod /data/file
    expect "$1" "unlink" try unlink /data/file
    expect "$1" "rmdir" try rmdir /data/directory
    expect done "a program rule lets read" try open /data/open/file
    expect "$1" "and not write" try write /data/open/file
    expect done "labels let read" try login alice /bin/try open /labels/low
    expect "$1" "and not write" try login alice /bin/try write /labels/low
    expect done "a user rule lets write" try login alice /bin/try write /data/alice
    expect "$1" "and not another user" try login bob /bin/try write /data/alice
    expect "$1" "the policy's directory" try open /etc/sorvanic/statlabel
    expect "$1" "the product's directory" try write /usr/sorvanic/sorvagent
    expect "$1" "the same file by another mount" try open /other/open_elsewhere
    expect "$1" "a file of a mount that shows a part of its file system" try write /data/part/file
}

prepare() {
    rm -rf /data /free /labels /other
    mkdir -p /data/directory /data/open /free /labels /other
    for file in /data/file /data/two /data/open/file /data/alice /free/one /labels/low /data/open_elsewhere; do
        echo text >$file
    done
    mount --bind /data /other
    mkdir -p /whole /data/part
    mount -t tmpfs whole /whole
    mkdir /whole/part
    echo text >/whole/part/file
    mount --bind /whole/part /data/part
    umount /whole
}

records() {
    { cat /opt/unlisted; echo; } >/opt/not_reported_yet # a program is not reported twice in a row
    chmod 755 /opt/not_reported_yet
    expect "$1" "an unlisted program is reported" try record 2 /bin/try run /opt/not_reported_yet
    expect "$1" "a change of the clock is reported" try record 8 /bin/date -s 2030-01-01
}

signals() {
    /usr/sorvanic/sorvagent 100000 &
    agent=$!
    sleep 1
    expect "$1" "SIGKILL to the product's process" try kill $agent 9
    [ "$1" = done ] && wait $agent
}

# The log lies in the directory whose lock is held while the line for a new file there is written.
installation() {
    rm -rf /elsewhere /tmp/ran
    mkdir -p /elsewhere
    mount --bind /elsewhere /var/log
    cat >/tmp/install <<'TEXT'
touch /elsewhere/swinstall.log.1
cp /opt/unlisted /elsewhere/brought
chmod 755 /elsewhere/brought
/elsewhere/brought && touch /tmp/ran
TEXT
    sh -c "/opt/sorvall 3 & sleep 1; sh /tmp/install; wait"
    expect done "a program that an installation brings runs inside it" test -e /tmp/ran
    try install-end
    expect "$1" "and not behind its end" try run /elsewhere/brought
    [ "$1" = done ] || expect done "what it made is in the log" grep -qx /elsewhere/brought /var/log/swinstall.log
    umount /var/log
}

load() { insmod /sorvanic.ko && while [ "$(cat /sys/kernel/livepatch/sorvanic/transition)" != 0 ]; do sleep 1; done; }

unload() {
    echo 0 >/sys/kernel/livepatch/sorvanic/enabled
    waited=0
    while [ -e /sys/kernel/livepatch/sorvanic ] && [ $waited -lt 60 ]; do
        sleep 1
        waited=$((waited + 1))
    done
    rmmod sorvanic
}

set_status() { printf '%s' "$1" >/etc/sorvanic/statlabel; } # as base64: the shell may write there

phase=bare
prepare
cd /
programs done
files done
umount /data/part
umount /other
signals done
installation done
records refused

phase=enforced
prepare
if load; then
    programs refused
    files refused
    signals refused
    installation refused
    records done
    expect done "a reload" try reload
    expect refused "an unlisted program after it" try run /opt/unlisted
    expect done "no unlisted program ran during reloads" try storm /opt/unlisted 200
    set_status Mg== # observing
    su nobody -c "try reload"
    expect refused "a request of somebody else changes nothing" try run /opt/unlisted
    try reload
    expect done "observing lets an unlisted program run" try run /opt/unlisted
    phase=unloaded
    expect done "the module unloads" unload
    expect done "an unlisted program" try run /opt/unlisted
    phase=again
    set_status Mw==
    expect done "the module loads again" load
    expect refused "an unlisted program" try run /opt/unlisted
    set_status MQ==
    try reload
    expect done "and unloads again" unload
else
    failures=$((failures + 1))
    dmesg | tail -n 20
fi

dmesg | tail -n 40
echo "guest: $cases cases, $failures failed"
