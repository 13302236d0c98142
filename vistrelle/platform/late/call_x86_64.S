// vistrelleLateCall: from a doorway that is passed for the first time, with the address of its LateFunction in r11 and
// all else as the caller left it (System V calling convention: six integer registers, eight vector registers, al for
// variable arguments, r10). Asks vistrelleLateResolve for the function and goes on there as if it had been called.
  .text
  .globl vistrelleLateCall
  .hidden vistrelleLateCall
  .type vistrelleLateCall, @function
vistrelleLateCall:
  .cfi_startproc
  pushq %rbp
  .cfi_def_cfa_offset 16
  .cfi_offset %rbp, -16
  movq %rsp, %rbp
  .cfi_def_cfa_register %rbp
  pushq %rax
  pushq %rdi
  pushq %rsi
  pushq %rdx
  pushq %rcx
  pushq %r8
  pushq %r9
  pushq %r10
  subq $128, %rsp
  movups %xmm0, 0(%rsp)
  movups %xmm1, 16(%rsp)
  movups %xmm2, 32(%rsp)
  movups %xmm3, 48(%rsp)
  movups %xmm4, 64(%rsp)
  movups %xmm5, 80(%rsp)
  movups %xmm6, 96(%rsp)
  movups %xmm7, 112(%rsp)
  movq %r11, %rdi
  call vistrelleLateResolve@PLT
  movq %rax, %r11
  movups 0(%rsp), %xmm0
  movups 16(%rsp), %xmm1
  movups 32(%rsp), %xmm2
  movups 48(%rsp), %xmm3
  movups 64(%rsp), %xmm4
  movups 80(%rsp), %xmm5
  movups 96(%rsp), %xmm6
  movups 112(%rsp), %xmm7
  addq $128, %rsp
  popq %r10
  popq %r9
  popq %r8
  popq %rcx
  popq %rdx
  popq %rsi
  popq %rdi
  popq %rax
  popq %rbp
  .cfi_def_cfa %rsp, 8
  jmp *%r11
  .cfi_endproc
  .size vistrelleLateCall, . - vistrelleLateCall

  .section .note.GNU-stack, "", @progbits
