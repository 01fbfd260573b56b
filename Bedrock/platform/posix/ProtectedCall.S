/* int ZemProtectedCall(void (*body)(void*), void* frame)

   Calls body(frame) from a frame with a personality of its own (Fault.cpp). It returns 1 when the body returns, and 0
   when the personality has chosen this frame for a thrown object and the unwinder has landed here. The personality finds
   `frame` by the stack pointer at the call. */

#if defined(__CET__)
#include <cet.h>
#else
#define _CET_ENDBR
#endif

        .text
        .p2align 4
        .globl  ZemProtectedCall
        .hidden ZemProtectedCall
        .type   ZemProtectedCall, @function
        .hidden ZemPersonality
        .hidden ZemCaught
        .globl  ZemLanding
        .hidden ZemLanding

ZemProtectedCall:
        .cfi_startproc
        .cfi_personality 0x1b, ZemPersonality
        _CET_ENDBR
#if defined(__x86_64__)
        pushq   %rbp
        .cfi_def_cfa_offset 16
        .cfi_offset %rbp, -16
        movq    %rsp, %rbp
        .cfi_def_cfa_register %rbp
        subq    $16, %rsp
        movq    %rsi, 8(%rsp)
        movq    %rdi, %rax
        movq    %rsi, %rdi
        call    *%rax
        movl    $1, %eax
        leave
        .cfi_remember_state
        .cfi_def_cfa %rsp, 8
        ret
        .cfi_restore_state
ZemLanding:
        _CET_ENDBR
        movq    %rax, %rdi
        call    ZemCaught
        xorl    %eax, %eax
        leave
        .cfi_def_cfa %rsp, 8
        ret
#elif defined(__i386__)
        pushl   %ebp
        .cfi_def_cfa_offset 8
        .cfi_offset %ebp, -8
        movl    %esp, %ebp
        .cfi_def_cfa_register %ebp
        subl    $24, %esp
        movl    12(%ebp), %eax
        movl    %eax, (%esp)
        movl    %eax, 8(%esp)           /* the callee may change its arguments */
        call    *8(%ebp)
        movl    $1, %eax
        leave
        .cfi_remember_state
        .cfi_def_cfa %esp, 4
        ret
        .cfi_restore_state
ZemLanding:
        _CET_ENDBR
        movl    %eax, (%esp)
        call    ZemCaught
        xorl    %eax, %eax
        leave
        .cfi_def_cfa %esp, 4
        ret
#else
#error "a protected call is written for x86 alone"
#endif
        .cfi_endproc
        .size   ZemProtectedCall, .-ZemProtectedCall

        .section .note.GNU-stack, "", @progbits
