# Writes a font file as C++: cmake -DINPUT=FILE -DOUTPUT=FILE -P cmake/embed_font.cmake
file(READ ${INPUT} bytes HEX)
string(LENGTH "${bytes}" digits)
math(EXPR size "${digits} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
file(WRITE ${OUTPUT} "#include \"EmbeddedFont.h\"\n\nnamespace qmxview {\n
const unsigned char embeddedFont[] = {${bytes}};
const std::size_t embeddedFontSize = ${size};\n\n}  // namespace qmxview\n")
