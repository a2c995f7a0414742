// StateCalifornium <port> <rows>: a document of that many rows at /tuples, with Californium.  It is
// empty until 200 ms after somebody has begun to observe it, and says then when it was filled:
// "updated_ns".
import java.net.InetSocketAddress;
import java.nio.charset.StandardCharsets;
import java.util.concurrent.Executors;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicBoolean;
import org.eclipse.californium.core.CoapResource;
import org.eclipse.californium.core.CoapServer;
import org.eclipse.californium.core.coap.CoAP.ResponseCode;
import org.eclipse.californium.core.coap.CoAP.Type;
import org.eclipse.californium.core.coap.MediaTypeRegistry;
import org.eclipse.californium.core.config.CoapConfig;
import org.eclipse.californium.core.network.CoapEndpoint;
import org.eclipse.californium.core.server.resources.CoapExchange;
import org.eclipse.californium.elements.config.Configuration;
import org.eclipse.californium.elements.config.UdpConfig;

class StateCalifornium {
  private static class Tuples extends CoapResource {
    private final byte[] document;
    private final AtomicBoolean isObserved = new AtomicBoolean();
    private volatile byte[] body = new byte[0];

    Tuples(byte[] document) {
      super("tuples");
      this.document = document;
      setObservable(true);
      setObserveType(Type.CON);
    }

    @Override
    public void handleGET(CoapExchange exchange) {
      exchange.respond(ResponseCode.CONTENT, body, MediaTypeRegistry.APPLICATION_JSON);
      if (isObserved.getAndSet(true)) return;
      Executors.newSingleThreadScheduledExecutor().schedule(this::fill, 200, TimeUnit.MILLISECONDS);
    }

    private void fill() {
      System.out.println("updated_ns " + System.nanoTime());
      body = document;
      changed();
    }
  }

  private static byte[] rows(int number) {
    StringBuilder text = new StringBuilder("{\"data\":[");
    for (int i = 0; i < number; ++i) {
      text.append(i == 0 ? "" : ",");
      text.append(String.format("{\"key\":\"key%08d\",\"val\":\"value of a tupl\"}", i));
    }
    return text.append("]}").toString().getBytes(StandardCharsets.US_ASCII);
  }

  public static void main(String[] arguments) {
    CoapConfig.register();
    UdpConfig.register();
    byte[] document = rows(Integer.parseInt(arguments[1]));
    Configuration config = Configuration.createStandardWithoutFile();
    config.set(CoapConfig.MAX_RESOURCE_BODY_SIZE, document.length + 1);
    config.set(CoapConfig.PREFERRED_BLOCK_SIZE, 1024);
    config.set(CoapConfig.MAX_MESSAGE_SIZE, 1024);
    CoapServer server = new CoapServer(config);
    server.addEndpoint(CoapEndpoint.builder()
        .setConfiguration(config)
        .setInetSocketAddress(new InetSocketAddress("127.0.0.1", Integer.parseInt(arguments[0])))
        .build());
    server.add(new Tuples(document));
    server.start();
    System.out.println("ready");
  }
}
