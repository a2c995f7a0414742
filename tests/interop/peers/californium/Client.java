// Client <file of the cases>: runs the cases with Californium, and prints what it saw of each.
import com.google.gson.Gson;
import com.google.gson.JsonPrimitive;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.Map;
import org.eclipse.californium.core.CoapClient;
import org.eclipse.californium.core.CoapHandler;
import org.eclipse.californium.core.CoapObserveRelation;
import org.eclipse.californium.core.CoapResponse;
import org.eclipse.californium.core.coap.CoAP;
import org.eclipse.californium.core.coap.Request;
import org.eclipse.californium.core.coap.Token;
import org.eclipse.californium.core.config.CoapConfig;
import org.eclipse.californium.core.network.CoapEndpoint;
import org.eclipse.californium.core.network.Endpoint;
import org.eclipse.californium.elements.config.Configuration;
import org.eclipse.californium.elements.exception.ConnectorException;
import org.eclipse.californium.elements.util.StringUtil;

class Client {
  private static final String ME = "californium";
  private static final String NO_ANSWER = "no answer";
  private static final int SLOWNESS = Integer.parseInt(textOr("INTEROP_SLOWNESS", "1"));
  private static final int SETTLE_MS = 3000 * SLOWNESS;
  private static final int CHANGE_MS = 2500 * SLOWNESS;
  private static final int LOSSY_MS = 24000 * SLOWNESS;

  // ---- the file ----

  private static class Cases { List<Case> direct; }

  private static class Case {
    String id;
    Call request;
    Map<String, String> cannot = Map.of();
    boolean slow;
  }

  private static class Call {
    String method = "GET";
    String path;
    List<String> query = List.of();
    String payload = "";
    int pattern;
    boolean non;
    boolean tokenless;
    boolean lossy;
    Map<String, JsonPrimitive> options = Map.of();
    List<String> steps;
    String end;

    byte[] bytes() {
      return pattern != 0 ? Words.pattern(pattern) : payload.getBytes(StandardCharsets.UTF_8);
    }
  }

  private static String textOr(String name, String otherwise) {
    String text = System.getenv(name);
    return text != null ? text : otherwise;
  }

  // ---- messages ----

  private static Endpoint newEndpoint(Call call) {
    Configuration config = Words.newConfig();
    for (String name : List.of("block1", "block2")) {
      if (!call.options.containsKey(name)) continue;
      int size = 16 << call.options.get(name).getAsInt();
      config.set(CoapConfig.PREFERRED_BLOCK_SIZE, size).set(CoapConfig.MAX_MESSAGE_SIZE, size);
    }
    return CoapEndpoint.builder().setConfiguration(config).build();
  }

  private static void setOption(Request request, String name, JsonPrimitive value) {
    switch (name) {
      case "accept": request.getOptions().setAccept(value.getAsInt()); break;
      case "etag": request.getOptions().addETag(StringUtil.hex2ByteArray(value.getAsString())); break;
      case "if-match":
        request.getOptions().addIfMatch(StringUtil.hex2ByteArray(value.getAsString()));
        break;
      case "if-none-match": request.getOptions().setIfNoneMatch(true); break;
      case "block2": request.getOptions().setBlock2(value.getAsInt(), false, 0); break;
      default: break;
    }
  }

  private static Request newRequest(Call call) {
    Request request = new Request(CoAP.Code.valueOf(call.method));
    String host = call.lossy ? Words.RELAY : Words.SERVER;
    request.setURI("coap://" + host + "/" + call.path);
    call.query.forEach(request.getOptions()::addUriQuery);
    call.options.forEach((name, value) -> setOption(request, name, value));
    request.setConfirmable(!call.non);
    if (call.tokenless) request.setToken(Token.EMPTY);
    if (call.bytes().length != 0) {
      request.getOptions().setContentFormat(0);
      request.setPayload(call.bytes());
      if (call.method.equals("GET")) request.setUnintendedPayload();
    }
    return request;
  }

  private static String runPlain(Call call) throws ConnectorException, IOException {
    Endpoint endpoint = newEndpoint(call);
    CoapClient client = new CoapClient();
    client.setEndpoint(endpoint).setTimeout((long) (call.lossy ? LOSSY_MS : SETTLE_MS));
    try {
      CoapResponse response = client.advanced(newRequest(call));
      return response == null ? NO_ANSWER : Words.messageText(response.advanced());
    } finally {
      client.shutdown();
      endpoint.destroy();
    }
  }

  // ---- observations ----

  // Log is what the server says of the observers of a path, from now on.
  private static class Log {
    private final Path file = Path.of(textOr("INTEROP_SERVER_LOG", "/dev/null"));
    private final String uri;
    private final int start;

    Log(String uri) throws IOException {
      this.uri = uri;
      start = Files.readString(file).length();
    }

    private List<String> numbers() throws IOException {
      List<String> found = new ArrayList<>();
      for (String line : Files.readString(file).substring(start).split("\n")) {
        if (line.startsWith("observers " + uri + " ")) found.add(line.split(" ")[2]);
      }
      return found;
    }

    void waitLeft(int seconds) throws IOException, InterruptedException {
      for (int i = 0; i < 10 * seconds * SLOWNESS && !numbers().contains("0"); ++i) Thread.sleep(100);
    }

    String text() throws IOException {
      return "observers " + (numbers().isEmpty() ? "none" : String.join(" ", numbers()));
    }
  }

  private static class Heard implements CoapHandler {
    final List<String> texts = Collections.synchronizedList(new ArrayList<>());

    @Override
    public void onLoad(CoapResponse response) { texts.add(Words.messageText(response.advanced())); }

    @Override
    public void onError() { texts.add("error"); }
  }

  private static void control(String step) throws Exception {
    Call call = new Call();
    call.method = "POST";
    call.path = "ctl";
    call.payload = step;
    runPlain(call);
    Thread.sleep(CHANGE_MS);
  }

  private static void end(Call call, CoapObserveRelation relation, Endpoint endpoint)
      throws Exception {
    switch (call.end) {
      case "vanish": endpoint.destroy(); break;
      case "reset": relation.reactiveCancel(); break;
      case "cancel": relation.proactiveCancel(); break;
      default: break;
    }
    if (call.end.equals("vanish") || call.end.equals("reset")) {
      control("set " + call.path + " 1000 end0");
    }
  }

  private static String runObserve(Call call) throws Exception {
    control("set " + call.path + " 1000 val0");
    Log log = new Log(call.path);
    Endpoint endpoint = newEndpoint(call);
    CoapClient client = new CoapClient();
    client.setEndpoint(endpoint).setTimeout((long) SETTLE_MS);
    Heard heard = new Heard();
    CoapObserveRelation relation = client.observe(newRequest(call).setObserve(), heard);
    Thread.sleep(SETTLE_MS);
    for (String step : call.steps) control(step);
    List<String> texts = new ArrayList<>(heard.texts);
    end(call, relation, endpoint);
    if (!log.numbers().isEmpty()) log.waitLeft(call.end.equals("vanish") ? 120 : 5);
    texts.add(log.text());
    client.shutdown();
    endpoint.destroy();
    return String.join(" | ", texts);
  }

  // ---- cases ----

  private static String run(Case each) {
    if (each.cannot.containsKey(ME)) return "cannot: " + each.cannot.get(ME);
    try {
      return each.request.steps != null ? runObserve(each.request) : runPlain(each.request);
    } catch (Exception problem) {
      return "broken: " + problem;
    }
  }

  public static void main(String[] arguments) throws IOException {
    String text = Files.readString(Path.of(arguments[0])).replace("PEER", ME);
    for (Case each : new Gson().fromJson(text, Cases.class).direct) {
      if (each.slow && System.getenv("INTEROP_QUICK") != null) continue;
      System.out.println(each.id + "\t" + run(each));
    }
    System.exit(0);
  }
}
