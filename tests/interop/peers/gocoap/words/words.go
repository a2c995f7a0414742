// Package words has what both programs need: the payload that every program here knows, and what a
// message looks like in the words of outcome.py.
package words

import (
	"encoding/json"
	"fmt"
	"os"
	"strconv"
	"strings"

	"github.com/plgd-dev/go-coap/v3/message"
	"github.com/plgd-dev/go-coap/v3/message/codes"
	"github.com/plgd-dev/go-coap/v3/message/pool"
)

const (
	Server  = "127.0.0.2:5683"
	Relay   = "127.0.0.3:5683"
	maxRows = 5
	maxText = 40
)

// Slowness says how often its usual time a wait takes.
func Slowness() int {
	if slowness, err := strconv.Atoi(os.Getenv("INTEROP_SLOWNESS")); err == nil {
		return slowness
	}
	return 1
}

// Pattern has a letter for each 50 bytes.
func Pattern(size int) []byte {
	bytes := []byte(strings.Repeat(".", size))
	for at := 0; at < size; at += 50 {
		bytes[at] = byte('a' + at/50%26)
	}
	return bytes
}

type row struct{ Op, Key, Val string }

func (r row) String() string {
	if r.Op == "d" {
		return "-" + r.Key
	}
	return "+" + r.Key + "=" + r.Val
}

func tableText(payload []byte) string {
	var table struct{ Data []row }
	if err := json.Unmarshal(payload, &table); err != nil {
		return err.Error()
	}
	if len(table.Data) > maxRows {
		return fmt.Sprintf("%d rows", len(table.Data))
	}
	var rows []string
	for _, each := range table.Data {
		rows = append(rows, each.String())
	}
	return strings.Join(rows, " ")
}

func linksText(payload []byte) string {
	links := strings.Split(string(payload), ",")
	if len(links) <= 2 {
		return strings.Join(links, " ")
	}
	known := 0
	for _, link := range links {
		if link == "</test>" || link == "</obs>;obs" {
			known++
		}
	}
	text := fmt.Sprintf("%d links", len(links))
	if known == 2 {
		text += ", </test> and </obs>;obs among them"
	}
	return text
}

func payloadText(payload []byte, format message.MediaType, hasFormat bool) string {
	text := string(payload)
	switch {
	case hasFormat && format == message.AppLinkFormat:
		return linksText(payload)
	case strings.HasPrefix(text, `{"data"`):
		return tableText(payload)
	case len(text) <= maxText:
		return "'" + text + "'"
	case text == string(Pattern(len(text))):
		return fmt.Sprintf("%d bytes of the pattern", len(text))
	}
	return fmt.Sprintf("%d bytes", len(text))
}

func joined(m *pool.Message, id message.OptionID, by string) string {
	var parts []string
	for _, option := range m.Options() {
		if option.ID == id {
			parts = append(parts, string(option.Value))
		}
	}
	return strings.Join(parts, by)
}

func optionsText(m *pool.Message) string {
	var texts []string
	if m.HasOption(message.ETag) {
		texts = append(texts, "ETag")
	}
	if m.HasOption(message.Observe) {
		texts = append(texts, "Observe")
	}
	if m.HasOption(message.URIPath) {
		texts = append(texts, "Uri-Path "+joined(m, message.URIPath, "/"))
	}
	if format, err := m.ContentFormat(); err == nil {
		texts = append(texts, fmt.Sprintf("format %d", format))
	}
	if m.HasOption(message.LocationPath) {
		texts = append(texts, "Location-Path "+joined(m, message.LocationPath, "/"))
	}
	if m.HasOption(message.LocationQuery) {
		texts = append(texts, "Location-Query "+joined(m, message.LocationQuery, "&"))
	}
	return strings.Join(texts, ", ")
}

func typeText(m *pool.Message) string {
	switch m.Type() {
	case message.Confirmable:
		return "CON"
	case message.NonConfirmable:
		return "NON"
	case message.Acknowledgement:
		return "ACK"
	}
	return m.Type().String()
}

// CodeText is "2.05" for 69.
func CodeText(code codes.Code) string { return fmt.Sprintf("%d.%02d", code>>5, code&31) }

// MessageText tells a message.
func MessageText(m *pool.Message) string {
	text := typeText(m) + " " + CodeText(m.Code())
	if options := optionsText(m); options != "" {
		text += " " + options
	}
	payload, err := m.ReadBody()
	if err != nil {
		return text + ": " + err.Error()
	}
	if len(payload) == 0 {
		return text
	}
	format, err := m.ContentFormat()
	return text + ": " + payloadText(payload, format, err == nil)
}
