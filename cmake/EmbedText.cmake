# Writes a C++ source that holds the text of INPUT as the constant NAME, so that a page or a
# template ships inside the program instead of beside it.
#   cmake -DINPUT=page.html -DOUTPUT=Page.cpp -DNAME=PageText -P EmbedText.cmake
file(READ "${INPUT}" text)
string(FIND "${text}" ")embedded\"" clash)
if(NOT clash EQUAL -1)
    message(FATAL_ERROR "${INPUT} holds the raw string's closing delimiter")
endif()
file(WRITE "${OUTPUT}.new" "// Generated from ${INPUT}; edit that file instead.\n"
    "extern const char* const ${NAME};\n"
    "const char* const ${NAME} = R\"embedded(${text})embedded\";\n")
file(COPY_FILE "${OUTPUT}.new" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.new")
