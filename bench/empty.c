// The shortest program: what a start costs at least.
int main(void) {
    return 0;
}
