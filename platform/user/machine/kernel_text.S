# The kernel text that the engine patches: do_fork and do_exit, in a page of their own, each with
# one near call to rewrite. Written in assembly because a compiler may inline such a call, or drop
# arguments that it sees nobody use.
#
# The call's four displacement bytes are aligned, so that one store changes them for every thread.
# Ahead of it stands a byte that looks like the opcode of a near call (e8) and is none.

        .section kernel_text, "ax", @progbits
        .p2align 12

# long do_fork(unsigned long clone_flags, unsigned long stack_start, struct pt_regs *regs,
#              unsigned long stack_size, int *parent_tidptr, int *child_tidptr)
        .globl  do_fork
        .type   do_fork, @function
do_fork:
        .cfi_startproc
        pushq   %rbp
        .cfi_def_cfa_offset 16
        .cfi_offset %rbp, -16
        movq    %rsp, %rbp
        .cfi_def_cfa_register %rbp
        movl    $0x000020e8, %eax       # the decoy; its second byte is CLONE_PTRACE
        movb    $0, %al
        andl    %edi, %eax
        shrl    $13, %eax               # trace: whether the child is to be traced
        movq    %r9, %r8                # child_tidptr
        xorl    %r9d, %r9d              # pid: none, copy_process takes a new one
        subq    $8, %rsp
        pushq   %rax                    # the seventh argument
        .p2align 2
        .nops   3
        call    copy_process
        addq    $16, %rsp
        movq    %rax, %rdi
        call    finish_fork
        popq    %rbp
        .cfi_def_cfa %rsp, 8
        ret
        .cfi_endproc
        .size   do_fork, .-do_fork

# void do_exit(long code)
        .p2align 4
        .globl  do_exit
        .type   do_exit, @function
do_exit:
        .cfi_startproc
        pushq   %rbp
        .cfi_def_cfa_offset 16
        .cfi_offset %rbp, -16
        movq    %rsp, %rbp
        .cfi_def_cfa_register %rbp
        call    begin_exit              # records the code; gives the exiting task
        movl    $0x000000e8, %esi       # the decoy
        xorl    %esi, %esi
        movq    %rax, %rdi
        .p2align 2
        .nops   3
        call    profile_task_exit
        popq    %rbp
        .cfi_def_cfa %rsp, 8
        ret
        .cfi_endproc
        .size   do_exit, .-do_exit

# Nothing else shares the page.
        .p2align 12

        .section .note.GNU-stack, "", @progbits
