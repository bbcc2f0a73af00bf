# What git prints and leaves, from a first commit to a rebase.
export GIT_CONFIG_GLOBAL=$PWD/config GIT_AUTHOR_DATE='2020-01-01T00:00:00Z' GIT_COMMITTER_DATE='2020-01-01T00:00:00Z'
exec 2>&1
git config --global user.name n; git config --global user.email e@example.org; git config --global init.defaultBranch main
git config --global gc.auto 0; git config --global protocol.file.allow always
git init -q r && cd r
for i in 1 2 3; do seq $((i * 100)) >f$i; done
chmod +x f2; ln -s f1 l; mkdir -p d/e; echo x >d/e/x
git add -A; git commit -qm one; git ls-files -s; git rev-parse HEAD
sed -i 50d f1; git mv f3 d/f3; git rm -q f2; git diff --stat; git status --short; git commit -qam two; git log --stat --oneline
git branch other HEAD~1; git checkout -q other; echo o >o; git add o; git commit -qm three
git merge -q main -m merged; git log --oneline --graph --all
git tag -a v1 -m v1; git stash list; echo dirty >>f1; git stash -q; git stash pop -q; git checkout -q -- f1
cd ..; git clone -q r c; cd c; git log --oneline | wc -l; git checkout -q -b mine origin/main; echo m >m; git add m; git commit -qm four
git rebase -q origin/other; git log --oneline; git push -q origin mine; git fetch -q; git branch -r
git worktree add -q ../w main 2>/dev/null || git worktree add -q ../w origin/main; git worktree list | awk '{print $2, $3}'
git gc -q --prune=now; git fsck --no-progress; git count-objects | awk '{print $1}'; git verify-pack -v .git/objects/pack/*.idx | tail -3
git archive --format=tar HEAD | tar -tv | awk '{print $1, $3, $6}'; git grep -n '^99$' | head -3; git bisect start -q HEAD HEAD~2
git submodule add -q ../r sub; git submodule status; git clean -fdxq; git config --list --local | grep -v url | sort
find .. -path '*/.git/*' -prune -o -printf '%P %M %s\n' | sort
