import java.io.BufferedInputStream;
import java.io.BufferedOutputStream;
import java.io.ByteArrayInputStream;
import java.io.ByteArrayOutputStream;
import java.io.DataInputStream;
import java.io.DataOutputStream;
import java.io.FileInputStream;
import java.io.FileOutputStream;
import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.lang.management.ManagementFactory;
import java.lang.management.ThreadMXBean;
import java.util.Map;
import java.util.Properties;

/**
 * Property files of the Java platform, for tests and the benchmark. Serves requests from standard
 * input until it ends. Numbers are big-endian; a string is a count and that number of UTF-16 units.
 *
 * <pre>
 * l, count, bytes         reads a file      -> number of entries, their strings; -1: refused
 * s, entries, strings     writes a file     -> count, bytes
 * t, path                 reads that file   -> processor time in nanoseconds (long)
 * w, path, target         writes the entries of the file at path to the file at target
 *                                           -> processor time of writing in nanoseconds (long)
 * </pre>
 */
public final class PropertiesPeer {
    private final DataInputStream in = new DataInputStream(new BufferedInputStream(System.in));
    private final DataOutputStream out = new DataOutputStream(new BufferedOutputStream(System.out));
    private Properties source;  // of the last request to write a file
    private String sourcePath;

    public static void main(String[] arguments) throws IOException {
        new PropertiesPeer().serve();
    }

    private void serve() throws IOException {
        for (int request; (request = in.read()) >= 0; out.flush()) {
            switch (request) {
                case 'l' -> load();
                case 's' -> store();
                case 't' -> time();
                case 'w' -> timeStore();
                default -> throw new IOException("no such request: " + request);
            }
        }
    }

    private void load() throws IOException {
        byte[] bytes = new byte[in.readInt()];
        in.readFully(bytes);
        Properties properties = new Properties();
        try {
            properties.load(new ByteArrayInputStream(bytes));
        } catch (IllegalArgumentException refused) {
            out.writeInt(-1);
            return;
        }
        out.writeInt(properties.size());
        for (Map.Entry<Object, Object> entry : properties.entrySet()) {
            writeText((String) entry.getKey());
            writeText((String) entry.getValue());
        }
    }

    private void store() throws IOException {
        Properties properties = new Properties();
        for (int entries = in.readInt(); entries > 0; --entries) {
            String key = readText();
            properties.put(key, readText());
        }
        ByteArrayOutputStream bytes = new ByteArrayOutputStream();
        properties.store(bytes, null);
        out.writeInt(bytes.size());
        bytes.writeTo(out);
    }

    private void time() throws IOException {
        String path = readText();
        ThreadMXBean thread = ManagementFactory.getThreadMXBean();
        long begin = thread.getCurrentThreadCpuTime();
        Properties properties = new Properties();
        try (InputStream file = new FileInputStream(path)) {
            properties.load(file);
        }
        out.writeLong(thread.getCurrentThreadCpuTime() - begin);
    }

    private void timeStore() throws IOException {
        String path = readText();
        String target = readText();
        if (!path.equals(sourcePath)) {
            source = new Properties();
            try (InputStream file = new FileInputStream(path)) {
                source.load(file);
            }
            sourcePath = path;
        }
        ThreadMXBean thread = ManagementFactory.getThreadMXBean();
        long begin = thread.getCurrentThreadCpuTime();
        try (OutputStream file = new FileOutputStream(target)) {
            source.store(file, null);
        }
        out.writeLong(thread.getCurrentThreadCpuTime() - begin);
    }

    private String readText() throws IOException {
        char[] units = new char[in.readInt()];
        for (int i = 0; i < units.length; ++i) {
            units[i] = in.readChar();
        }
        return new String(units);
    }

    private void writeText(String text) throws IOException {
        out.writeInt(text.length());
        out.writeChars(text);
    }
}
