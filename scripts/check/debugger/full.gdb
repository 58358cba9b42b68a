print *name
print *words
print *queue
set print cu-keys char
print *set
set print cu-values cu_Variant
print *map
print *tree
set print cu-values char
print *queue
print code
print (cu_ErrorCode)1001
