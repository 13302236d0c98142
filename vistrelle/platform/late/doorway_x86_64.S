// Doorways to the functions of one shared library; included by generated sources, which then hold
//   library "NAME"      once: the library as the loader knows it
//   doorway FUNCTION    for each function
// Every doorway has sections of its own, so that the linker drops those that nothing calls.

.macro library name
  .section .rodata.late, "a", @progbits
.Llibrary_name:
  .asciz "\name"
  .section .data.late, "aw", @progbits
  .p2align 3
.Llibrary:  // LateLibrary
  .quad 0
  .quad .Llibrary_name
.endm

.macro doorway function
  .section .text.late.\function, "ax", @progbits
  .globl \function
  .type \function, @function
\function:
  .cfi_startproc
  endbr64
  jmp *.Lfunction_\function(%rip)
.Lfirst_\function:
  endbr64
  leaq .Lfunction_\function(%rip), %r11
  jmp vistrelleLateCall
  .cfi_endproc
  .size \function, . - \function

  .section .rodata.late.\function, "a", @progbits
.Lname_\function:
  .asciz "\function"

  .section .data.late.\function, "aw", @progbits
  .p2align 3
.Lfunction_\function:  // LateFunction
  .quad .Lfirst_\function
  .quad .Lname_\function
  .quad .Llibrary
.endm

.section .note.GNU-stack, "", @progbits
