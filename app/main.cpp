int tovrinMain(int argc, char** argv);

int main(int argc, char** argv) {
    return tovrinMain(argc, argv);
}
