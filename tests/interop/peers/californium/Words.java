// Words has what both programs need: the payload that every program here knows, and what a message
// looks like in the words of outcome.py.
import com.google.gson.JsonArray;
import com.google.gson.JsonObject;
import com.google.gson.JsonParser;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import org.eclipse.californium.core.coap.CoAP;
import org.eclipse.californium.core.coap.MediaTypeRegistry;
import org.eclipse.californium.core.coap.OptionSet;
import org.eclipse.californium.core.coap.Response;
import org.eclipse.californium.core.config.CoapConfig;
import org.eclipse.californium.elements.config.Configuration;
import org.eclipse.californium.elements.config.UdpConfig;

final class Words {
  static final String SERVER = "127.0.0.2";
  static final String RELAY = "127.0.0.3";
  private static final int MAX_ROWS = 5;
  private static final int MAX_TEXT = 40;

  private Words() {}

  // newConfig is Californium's own, but no file is written, and bodies may have 64 KiB.
  static Configuration newConfig() {
    CoapConfig.register();
    UdpConfig.register();
    return Configuration.createStandardWithoutFile().set(CoapConfig.MAX_RESOURCE_BODY_SIZE, 65536);
  }

  static byte[] pattern(int size) {
    byte[] bytes = new byte[size];
    for (int at = 0; at < size; ++at) bytes[at] = (byte) (at % 50 == 0 ? 'a' + at / 50 % 26 : '.');
    return bytes;
  }

  private static String rowText(JsonObject row) {
    String key = row.get("key").getAsString();
    if (row.get("op").getAsString().equals("d")) return "-" + key;
    return "+" + key + "=" + row.get("val").getAsString();
  }

  private static String tableText(String payload) {
    JsonArray rows = JsonParser.parseString(payload).getAsJsonObject().getAsJsonArray("data");
    if (rows.size() > MAX_ROWS) return rows.size() + " rows";
    List<String> texts = new ArrayList<>();
    rows.forEach(row -> texts.add(rowText(row.getAsJsonObject())));
    return String.join(" ", texts);
  }

  private static String linksText(String payload) {
    List<String> links = Arrays.asList(payload.split(","));
    if (links.size() <= 2) return String.join(" ", links);
    boolean isKnown = links.contains("</test>") && links.contains("</obs>;obs");
    return links.size() + " links" + (isKnown ? ", </test> and </obs>;obs among them" : "");
  }

  private static String payloadText(Response response) {
    String text = response.getPayloadString();
    int format = response.getOptions().getContentFormat();
    if (format == MediaTypeRegistry.APPLICATION_LINK_FORMAT) return linksText(text);
    if (text.startsWith("{\"data\"")) return tableText(text);
    if (text.length() <= MAX_TEXT) return "'" + text + "'";
    boolean isPattern = Arrays.equals(response.getPayload(), pattern(text.length()));
    return text.length() + " bytes" + (isPattern ? " of the pattern" : "");
  }

  private static String optionsText(OptionSet options) {
    List<String> texts = new ArrayList<>();
    if (options.getETagCount() != 0) texts.add("ETag");
    if (options.hasObserve()) texts.add("Observe");
    if (options.getURIPathCount() != 0) texts.add("Uri-Path " + options.getUriPathString());
    if (options.hasContentFormat()) texts.add("format " + options.getContentFormat());
    if (options.getLocationPathCount() != 0) {
      texts.add("Location-Path " + options.getLocationPathString());
    }
    if (options.getLocationQueryCount() != 0) {
      texts.add("Location-Query " + options.getLocationQueryString());
    }
    return String.join(", ", texts);
  }

  static String codeText(CoAP.ResponseCode code) {
    return code.codeClass + "." + String.format("%02d", code.codeDetail);
  }

  static String messageText(Response response) {
    String options = optionsText(response.getOptions());
    String text = response.getType() + " " + codeText(response.getCode());
    if (!options.isEmpty()) text += " " + options;
    return response.getPayloadSize() == 0 ? text : text + ": " + payloadText(response);
  }
}
