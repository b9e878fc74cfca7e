# Types each argument from the third on into a zsh, completes the word at its end, and prints the
# command lines that came of it. Before them: a folder with programs, one with completions.
zmodload zsh/zpty
zpty shell zsh -f -i
zpty -w shell "PS1= PATH=$1:\$PATH; fpath=($2 \$fpath); autoload -Uz compinit; compinit -u -D"
zpty -w shell "run() { zle expand-or-complete; zle accept-line }; zle -N run; bindkey ^X run"
zpty -w shell "print RE''ADY"
zpty -r -m shell answer '*READY*'
for line in "${@[3,-1]}"; do
    zpty -w -n shell $line$'\C-x'
    zpty -r -m shell answer '*GOT:*'$'\n''*'
    print -r -- "${${answer##*GOT:}%%$'\r'*}"
done
