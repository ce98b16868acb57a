// The outer project's own library of that name.
const char* ownVelta() {
    return "own velta";
}
