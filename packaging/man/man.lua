-- Turns a part of the manual (docs/) into a manual page. With the variable "command", the first
-- paragraph becomes the name and the first code block the synopsis.

-- A manual page has no links.
function Link(link)
  return link.content
end

-- Manual pages are narrow, so a table becomes a list. The first column is the term. The columns
-- between the first and the last follow their headings.
function Table(tbl)
  local simple = pandoc.utils.to_simple_table(tbl)
  local items = {}
  for _, row in ipairs(simple.rows) do
    local term = pandoc.List(pandoc.utils.blocks_to_inlines(row[1]))
    local last = #row
    local meaning = pandoc.List()
    for i = 2, last - 1 do
      local text = pandoc.utils.blocks_to_inlines(row[i])
      if #text > 0 then
        meaning:extend(pandoc.utils.blocks_to_inlines(simple.headers[i]))
        meaning:extend({pandoc.Str(":"), pandoc.Space()})
        meaning:extend(text)
        meaning:extend({pandoc.Str("."), pandoc.Space()})
      end
    end
    if last > 1 then meaning:extend(pandoc.utils.blocks_to_inlines(row[last])) end
    table.insert(items, {term, {{pandoc.Para(meaning)}}})
  end
  return pandoc.DefinitionList(items)
end

-- A paragraph of the words of the line. Words in brackets stay on one line.
local function unbroken(line)
  local words = pandoc.List()
  for part in line:gsub("%b[]", function(option) return option:gsub(" ", "\u{a0}") end):gmatch("%S+") do
    words:extend({pandoc.Str(part), pandoc.Space()})
  end
  return pandoc.Para(words)
end

local function upper(inlines)
  return pandoc.walk_block(pandoc.Plain(inlines), {
    Str = function(word) return pandoc.Str(word.text:upper()) end,
  }).content
end

function Pandoc(doc)
  local name = pandoc.utils.stringify(doc.meta.title):lower()
  local is_command = doc.meta.command ~= nil
  local summary = doc.meta.summary and pandoc.utils.stringify(doc.meta.summary)
  local blocks, synopsis = pandoc.List(), nil
  for _, block in ipairs(doc.blocks) do
    if is_command and not summary and block.t == "Para" then
      summary = pandoc.utils.stringify(block):gsub("%.$", ""):gsub("^%u", string.lower)
    elseif is_command and not synopsis and block.t == "CodeBlock" then
      synopsis = block
    elseif block.t == "Header" then
      block.level = block.level > 2 and 2 or 1
      if block.level == 1 then block.content = upper(block.content) end
      blocks:insert(block)
    else
      blocks:insert(block)
    end
  end
  local page = pandoc.List({
    pandoc.Header(1, "NAME"),
    pandoc.Para({pandoc.Str(name), pandoc.Space(), pandoc.Str("-"), pandoc.Space(),
                 pandoc.Str(summary)}),
  })
  if synopsis then
    page:insert(pandoc.Header(1, "SYNOPSIS"))
    for line in synopsis.text:gmatch("[^\n]+") do page:insert(unbroken(line)) end
  end
  if #blocks > 0 and blocks[1].t ~= "Header" then page:insert(pandoc.Header(1, "DESCRIPTION")) end
  page:extend(blocks)
  if doc.meta.see then
    page:insert(pandoc.Header(1, "SEE ALSO"))
    page:insert(pandoc.Para(pandoc.Str(pandoc.utils.stringify(doc.meta.see))))
  end
  doc.blocks = page
  return doc
end
