// Server: what our client calls: the resources of store.md, with Californium.
import java.net.InetSocketAddress;
import java.util.Arrays;
import java.util.Locale;
import java.util.concurrent.Executors;
import java.util.concurrent.ScheduledExecutorService;
import java.util.concurrent.TimeUnit;
import org.eclipse.californium.core.CoapResource;
import org.eclipse.californium.core.CoapServer;
import org.eclipse.californium.core.coap.CoAP;
import org.eclipse.californium.core.coap.CoAP.ResponseCode;
import org.eclipse.californium.core.coap.MediaTypeRegistry;
import org.eclipse.californium.core.coap.OptionSet;
import org.eclipse.californium.core.network.CoapEndpoint;
import org.eclipse.californium.core.server.resources.CoapExchange;
import org.eclipse.californium.elements.config.Configuration;

class Server {
  private static final int DELAY_MS = 1000;
  private static final ScheduledExecutorService later = Executors.newScheduledThreadPool(1);

  private static class Hello extends CoapResource {
    Hello(String name) { super(name); }

    @Override
    public void handleGET(CoapExchange exchange) { exchange.respond("hello"); }
  }

  private static class Test extends Hello {
    Test() { super("test"); }

    @Override
    public void handlePUT(CoapExchange exchange) { exchange.respond(ResponseCode.CHANGED); }

    @Override
    public void handlePOST(CoapExchange exchange) {
      exchange.respond(ResponseCode.CHANGED, exchange.getRequestText().toUpperCase(Locale.ROOT));
    }

    @Override
    public void handleDELETE(CoapExchange exchange) { exchange.respond(ResponseCode.DELETED); }
  }

  private static class Query extends CoapResource {
    Query() { super("query"); }

    @Override
    public void handleGET(CoapExchange exchange) {
      exchange.respond(String.join(" ", exchange.getRequestOptions().getUriQuery()));
    }
  }

  private static class Separate extends CoapResource {
    Separate() { super("separate"); }

    @Override
    public void handleGET(CoapExchange exchange) {
      exchange.accept();
      later.schedule(() -> exchange.respond("later"), DELAY_MS, TimeUnit.MILLISECONDS);
    }
  }

  private static class Location extends CoapResource {
    Location() { super("location"); }

    @Override
    public void handlePOST(CoapExchange exchange) {
      exchange.setLocationPath("location/1");
      exchange.respond(ResponseCode.CREATED);
    }
  }

  private static class Accept extends CoapResource {
    Accept() { super("accept"); }

    @Override
    public void handleGET(CoapExchange exchange) {
      OptionSet options = exchange.getRequestOptions();
      if (!options.hasAccept() || options.isAccept(MediaTypeRegistry.TEXT_PLAIN)) {
        exchange.respond("hello");
      } else if (options.isAccept(MediaTypeRegistry.APPLICATION_JSON)) {
        exchange.respond(ResponseCode.CONTENT, "{\"text\":\"hello\"}",
            MediaTypeRegistry.APPLICATION_JSON);
      } else {
        exchange.respond(ResponseCode.NOT_ACCEPTABLE);
      }
    }
  }

  // Validate has an ETag, which is its version.
  private static class Validate extends CoapResource {
    private byte[] payload = "hello".getBytes();
    private byte version = 1;

    Validate() { super("validate"); }

    private byte[] etag() { return new byte[] {version}; }

    @Override
    public void handleGET(CoapExchange exchange) {
      exchange.setETag(etag());
      if (exchange.getRequestOptions().containsETag(etag())) exchange.respond(ResponseCode.VALID);
      else exchange.respond(ResponseCode.CONTENT, payload, MediaTypeRegistry.TEXT_PLAIN);
    }

    @Override
    public void handlePUT(CoapExchange exchange) {
      OptionSet options = exchange.getRequestOptions();
      if (options.hasIfNoneMatch() || !options.isIfMatch(etag())) {
        exchange.respond(ResponseCode.PRECONDITION_FAILED);
        return;
      }
      payload = exchange.getRequestPayload();
      ++version;
      exchange.respond(ResponseCode.CHANGED);
    }
  }

  private static class Large extends CoapResource {
    Large() { super("large"); }

    @Override
    public void handleGET(CoapExchange exchange) {
      exchange.respond(ResponseCode.CONTENT, Words.pattern(20000), MediaTypeRegistry.TEXT_PLAIN);
    }

    @Override
    public void handlePUT(CoapExchange exchange) {
      byte[] payload = exchange.getRequestPayload();
      boolean isGood = Arrays.equals(payload, Words.pattern(payload.length));
      exchange.respond(isGood ? ResponseCode.CHANGED : ResponseCode.BAD_REQUEST);
    }

    @Override
    public void handlePOST(CoapExchange exchange) { handlePUT(exchange); }
  }

  private static class Echo extends CoapResource {
    Echo() { super("large-echo"); }

    @Override
    public void handlePOST(CoapExchange exchange) {
      exchange.respond(ResponseCode.CHANGED, exchange.getRequestPayload(),
          MediaTypeRegistry.TEXT_PLAIN);
    }
  }

  private static class Observed extends CoapResource {
    private byte[] payload;

    Observed(String name, byte[] payload) {
      super(name);
      this.payload = payload;
      setObservable(true);
      getAttributes().setObservable();
    }

    byte[] made(CoapExchange exchange) { return exchange.getRequestPayload(); }

    @Override
    public void handleGET(CoapExchange exchange) {
      exchange.respond(ResponseCode.CONTENT, payload, MediaTypeRegistry.TEXT_PLAIN);
    }

    @Override
    public void handlePUT(CoapExchange exchange) {
      payload = made(exchange);
      exchange.respond(ResponseCode.CHANGED);
      changed();
    }

    @Override
    public void handleDELETE(CoapExchange exchange) {
      exchange.respond(ResponseCode.DELETED);
      clearAndNotifyObserveRelations(ResponseCode.NOT_FOUND);
    }
  }

  private static class ObservedPattern extends Observed {
    ObservedPattern() { super("obs-large", Words.pattern(3000)); }

    @Override
    byte[] made(CoapExchange exchange) {
      return Words.pattern(Integer.parseInt(exchange.getRequestText()));
    }
  }

  public static void main(String[] arguments) {
    Configuration config = Words.newConfig();
    CoapServer server = new CoapServer(config);
    server.addEndpoint(CoapEndpoint.builder()
        .setConfiguration(config)
        .setInetSocketAddress(new InetSocketAddress(Words.SERVER, CoAP.DEFAULT_COAP_PORT))
        .build());
    CoapResource inner = new CoapResource("seg2", false);
    inner.add(new Hello("seg3"));
    CoapResource outer = new CoapResource("seg1", false);
    outer.add(inner);
    server.add(new Test(), outer, new Query(), new Separate(), new Location(), new Accept(),
        new Validate(), new Large(), new Echo(), new Observed("obs", "val0".getBytes()),
        new Observed("obs-away", "val0".getBytes()),
        new ObservedPattern());
    server.start();
    System.out.println("serving");
  }
}
