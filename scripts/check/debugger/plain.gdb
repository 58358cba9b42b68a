print variants
print variants[7].value.vector.items[1]
set variable variants[0].type = 99
print variants[0]
set print elements 1
print variants[6]
set print elements 200
print properties
print name
print (cu_String*)8
print *set
print code
