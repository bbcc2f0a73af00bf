# What the tools of every day say of files, and how they leave them.
exec 2>&1
umask 022
look() { find . -printf '%P %y %M %n %s %U %l\n' | sort | awk '$2 == "d" { $5 = "-" } { print }'; }
mkdir -p a/b/c; seq 1000 >a/f; : >a/empty; ln a/f a/hard; ln -s f a/soft; ln -s nowhere a/dangling; mkfifo a/fifo
head -c 100000 /dev/zero >a/zeros; truncate -s 1M a/sparse; touch -d 2001-01-01 a/f; chmod 4750 a/f; chmod 1777 a/b
cp -a a copy; cp -rL a/f a/soft copy/b; cp --reflink=auto --sparse=always a/sparse s; cp -n a/f s; cp -u a/empty s; cp -b a/f s; look
mv copy moved; mv -n s moved; mv s moved/f; mv moved/none x; mv moved moved/b; ln -f a/f moved/f; ln -sfn b a/soft; look
cp a/f a/f; cp a x/y; rm a; rmdir a; mkdir a; mkdir -m 700 m; mkdir -p m/n/o; rmdir -p m/n/o; unlink a/empty; unlink a/b; link a/f l; look
install -D -m 640 l i/j/k; install -d i/d1 i/d2; chmod -R go-rwx i; chmod 000 i/j/k; cat i/j/k | wc -c; stat -c '%A %h %s %F' i/j/k a/fifo a/soft
chown $(id -u) l; chgrp $(id -g) l; chown 12345 l; touch -r a/f l; touch -c none; test -w l; echo $?; test -x l; echo $?
tar -cf t.tar a moved; tar -tvf t.tar | awk '{ print $1, $3, $6, $7, $8 }'; mkdir u; tar -xpf t.tar -C u; diff -r --no-dereference a u/a; echo $?
(cd a && find . -not -type p | cpio -o -H newc --quiet) | (mkdir v; cd v; cpio -id --quiet); diff -rq --no-dereference a v
command -v rsync >/dev/null && { rsync -aH a/ w/; rsync -aHin --delete a/ w/; : >w/more; rsync -aH --delete --itemize-changes a/ w/; }
split -l 300 l part.; wc -l part.*; cat part.* | cmp - l; sort -R l | sort -n | cmp - l; shuf -n 3 l | wc -l; tee t1 t2 <l | md5sum; dd if=l of=dd bs=7 count=11 status=none; md5sum dd
sed -i.bak s/1/one/ l; diff l l.bak | wc -l; d=$(mktemp -d ./XXXXXX); echo ${#d}; rmdir $d; readlink -f a/soft; realpath a/b/../f; du -a --apparent-size a/b; find a -newer l; find a -empty
flock l -c 'flock -n l true; echo $?'; timeout 0.2 cat a/fifo; echo $?; (exec 9<>a/fifo; echo through >&9; read -r line <&9; echo "$line")
ls -R . | md5sum; ls none; cat a; cat <a/b; echo >a/none/none; shred -n 1 -u dd; ls dd; sync l; df . | wc -l; xargs -a part.aa -n 50 -P 2 echo | wc -l
rm -r a/b/c moved u v; rm -rf a w; look | wc -l
