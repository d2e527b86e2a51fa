# The interfaces repeat the prototypes of KVOFortran.h or KVOModesFortran.h, which have the manual. Doxygen sees an interface and, in it, a procedure.
s/^( +)(subroutine|function) (\w+)\(.*$/\1!> As \3 in the header for C, where the manual stands.\n&/
s/^.*bind\(C, name="(\w+)"\).*$/&\n            !> As \1 in the header for C, where the manual stands./
