/* Between the tests of the 32-bit library and its exports: every call comes on a stack that stands 4,
 * 8 or 12 bytes below the alignment that today's convention promises, as callers from old compilers
 * and code generators leave it. The linker turns the tests' calls hither (--wrap). */
        .set    argument_words, 16
        .set    shift, 0

        .macro  CALL_SHIFTED export
        .set    shift, shift % 12 + 4
        .globl  __wrap_\export
        .type   __wrap_\export, @function
__wrap_\export:
        pushl   %ebp
        movl    %esp, %ebp
        pushl   %ebx
        pushl   %esi
        pushl   %edi
        subl    $4 * argument_words, %esp
        andl    $-16, %esp
        subl    $shift, %esp
        leal    8(%ebp), %esi
        movl    %esp, %edi
        movl    $argument_words, %ecx
        rep movsl
        call    .Lhere_\export
.Lhere_\export:
        popl    %ebx
        addl    $_GLOBAL_OFFSET_TABLE_ + (. - .Lhere_\export), %ebx
        call    *__real_\export@GOT(%ebx)
        leal    -12(%ebp), %esp
        popl    %edi
        popl    %esi
        popl    %ebx
        popl    %ebp
        ret
        .size   __wrap_\export, . - __wrap_\export
        .endm

        .text
#define EXPORT(name) CALL_SHIFTED name
#include "exports.inc"
        .section .note.GNU-stack, "", @progbits
