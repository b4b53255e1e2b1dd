#version 330 core
layout(location = 0) in vec3 in_Vertex;
layout(location = 3) in vec4 in_Row0;
layout(location = 4) in vec4 in_Row1;
layout(location = 5) in vec4 in_Row2;
layout(location = 6) in vec4 in_Color;
uniform mat4 u_mvpMatrix;
out vec4 b_color;
void main() {
   vec4 local = vec4(in_Vertex, 1.f);
   vec3 world = vec3(dot(in_Row0, local), dot(in_Row1, local), dot(in_Row2, local));
   b_color = in_Color;
   gl_Position = u_mvpMatrix * vec4(world, 1.f);
}
